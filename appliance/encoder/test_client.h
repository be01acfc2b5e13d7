// What the encoder's tests share: an encoder in this process, and a client that sees every byte. Everything
// that waits gives up after ten seconds.
#pragma once

#include "appliance/encoder/device.h"
#include "appliance/encoder/server.h"
#include "appliance/mark/frame_mark.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// An encoder on free ports of 127.0.0.1, with small pictures; `words` are more options of the command line.
class TestEncoder {
public:
    explicit TestEncoder(std::vector<std::string> words = {});
    ~TestEncoder();

    std::uint16_t http() const { return server_->port(PortRole::Http); }
    std::uint16_t https() const { return server_->port(PortRole::Https); }
    std::uint16_t rtsp() const { return server_->port(PortRole::Rtsp); }
    std::uint16_t control() const { return server_->port(PortRole::Control); }
    Device& device() { return *device_; }
    void setFaults(const std::string& list);
    void stop() { server_->stop(); }

private:
    std::unique_ptr<Device> device_;
    std::unique_ptr<Server> server_;
};

struct ClientReply {
    int status = 0;                             // 0: no answer that can be understood
    std::map<std::string, std::string> headers; // names in small letters
    std::string body;
};

class Client {
public:
    // -1 in fd() when the connection was refused.
    explicit Client(std::uint16_t port, int receiveBufferBytes = 0);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd() const { return fd_; }
    bool connected() const { return fd_ >= 0; }
    bool send(std::string_view bytes);

    // Up to and without `mark`, which is taken, too; nothing when the connection ends or the time is over
    // first.
    std::optional<std::string> readUntil(std::string_view mark);
    std::optional<std::string> readBytes(std::size_t count);
    // What comes until the connection ends; `reset` tells how it ended.
    std::string readToEnd(bool* reset = nullptr);
    // True when nothing at all comes for so long.
    bool silentFor(int milliseconds);

    ClientReply readHead();
    // With the body that Content-Length announces.
    ClientReply readReply();
    ClientReply get(const std::string& target, const std::string& moreHeaders = {});

private:
    bool readMore(int milliseconds, bool* reset = nullptr);

    int fd_;
    std::string pending_;
};

// One request on a connection of its own.
ClientReply get(std::uint16_t port, const std::string& target, const std::string& moreHeaders = {});

// The next JPEG of a multipart stream whose head was read; nothing when the stream is over.
std::optional<std::string> nextPart(Client& client);

struct JpegInfo {
    int width = 0;
    int height = 0;
    std::optional<FrameMark> mark;
};
JpegInfo lookAt(const std::string& jpeg);
