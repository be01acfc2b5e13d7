// Whole detections over loopback: the real library and real sockets, against an encoder that a test scripts.
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

// Sends a packet to two neighbouring ports every few milliseconds for as long as it lives.
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

// What an encoder answers to each kind of request; "" is silence. The default is an encoder of API version 2
// that offers nothing.
class Encoder {
public:
    using Answers = std::map<std::string, scripted::Answer>; // by what the request's first line holds

    explicit Encoder(Answers answers) : answers_(std::move(answers)) {}
    std::string operator()(const std::string& request) const;

    // On each connection, for as long as the client likes.
    scripted::Script script() const;

private:
    Answers answers_;
};

// An encoder with one RTSP stream, sent by unicast to whoever asks. Has to outlive the server that answers so.
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

    // Why this process has no network of its own; "" it has. With one, nobody else takes the port that a probe
    // has just found to be free.
    static const std::string& ownNetwork();

    // Detects what answers at `address`; milliseconds in took_. `timeout` in seconds.
    bool detect(const std::string& address, int timeout);
    bool detect(unsigned short port, int timeout);

    // Every connection, or each one its own, gets the script; what was asked is in requests_.
    bool detect(const std::vector<scripted::Script>& scripts, int timeout);
    bool detect(const Encoder& encoder, int timeout = 5) { return detect({encoder.script()}, timeout); }

    static std::string trace() { return status(statusId, "DetectionTrace"); }

    void expectEnd(const End& end) const;

    // No request took longer than its timeout, and the detection no longer than its requests together; with
    // what a busy machine may add.
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
