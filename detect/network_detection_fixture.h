// Whole detections over loopback: the real library and real sockets, against a scripted encoder.
#pragma once

#include "libcommon/src/appliance_fixture.h"
#include "sources/source_entry.h"
#include "tests/support/scripted_server.h"

#include <libcommon/status.h>

#include <atomic>
#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace detect_test {

inline constexpr int statusId = 3;

// Sends a packet to two neighbouring ports every few milliseconds while the object lives.
class PacketSender {
public:
    PacketSender(std::string address, int port);
    ~PacketSender();
    PacketSender(const PacketSender&) = delete;
    PacketSender& operator=(const PacketSender&) = delete;

private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

std::string firstLine(const std::string& request);
scripted::Answer always(const std::string& text);
std::string rtspReply(const std::string& headers = "");

// An encoder's answers to each kind of request; "" means no answer. The default is an encoder of API version 2 without
// any stream.
class Encoder {
public:
    using Answers = std::map<std::string, scripted::Answer>; // key: a part of the request's first line

    explicit Encoder(Answers answers) : answers_(std::move(answers)) {}
    std::string operator()(const std::string& request) const;

    // Serves a connection until the client closes it.
    scripted::Script script() const;

private:
    Answers answers_;
};

// An encoder with one RTSP stream, sent by unicast. It must outlive the server that uses it.
class UnicastEncoder {
public:
    Encoder::Answers answers(bool withPackets = true);

private:
    std::string setup(const std::string& request);

    int port_ = 0;
    std::optional<PacketSender> sender_;
};

// How a detection ends: an error, or 0 and a type.
struct End {
    int error;
    int type;
};

class NetworkDetection : public ApplianceTest {
protected:
    NetworkDetection();
    ~NetworkDetection() override;

    // "" or why this process has no network namespace. In a namespace no other process takes the port that a probe has
    // just found.
    static const std::string& ownNetwork();

    // Detects the encoder at `address`; took_ is the time in milliseconds. `timeout` in seconds.
    bool detect(const std::string& address, int timeout);
    bool detect(unsigned short port, int timeout);

    // Gives all connections one script, or each its own. The requests are in requests_.
    bool detect(const std::vector<scripted::Script>& scripts, int timeout);
    bool detect(const Encoder& encoder, int timeout = 5) { return detect({encoder.script()}, timeout); }

    static std::string trace() { return status(statusId, "DetectionTrace"); }

    void expectEnd(const End& end) const;

    // Checks that no request took longer than its timeout and the detection no longer than all requests, with some
    // allowance for a busy machine.
    void expectBounded(int timeout) const;

    SourceEntry entry_;
    std::string settings_; // more of the parameter file
    std::string output_;
    std::vector<std::string> requests_;
    std::chrono::steady_clock::duration took_{};

private:
    int input_;
};

} // namespace detect_test
