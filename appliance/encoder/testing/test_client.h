// Shared by the encoder's tests: an encoder in this process, and a client that gives access to every byte. Every wait
// ends after ten seconds.
#pragma once

#include "appliance/encoder/device/device.h"
#include "appliance/encoder/server/server.h"
#include "appliance/mark/frame_mark.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// An encoder on free ports of 127.0.0.1, with small pictures. `words` are further command line options.
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
    int status = 0;                             // 0: no valid reply
    std::map<std::string, std::string> headers; // names in lower case
    std::string body;
};

class Client {
public:
    // fd() is -1 if the connection was refused.
    explicit Client(std::uint16_t port, int receiveBufferBytes = 0);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    int fd() const { return fd_; }
    bool connected() const { return fd_ >= 0; }
    bool send(std::string_view bytes);

    // The bytes before `mark`; both are consumed. Nothing if the connection or the time ends first.
    std::optional<std::string> readUntil(std::string_view mark);
    std::optional<std::string> readBytes(std::size_t count);
    // The next byte, which stays to be read. Nothing when none comes in time.
    std::optional<char> nextByte();
    // All bytes until the connection ends. `reset` is set to whether it was reset.
    std::string readToEnd(bool* reset = nullptr);
    // True if no byte arrives for that time.
    bool silentFor(int milliseconds);

    ClientReply readHead();
    // Head, and body according to Content-Length.
    ClientReply readReply();
    ClientReply get(const std::string& target, const std::string& moreHeaders = {});

private:
    bool readMore(int milliseconds, bool* reset = nullptr);

    int fd_;
    std::string pending_;
};

// One request on a new connection.
ClientReply get(std::uint16_t port, const std::string& target, const std::string& moreHeaders = {});

// The next JPEG of a multipart stream whose head was read; nothing if the stream has ended.
std::optional<std::string> nextPart(Client& client);

struct JpegInfo {
    int width = 0;
    int height = 0;
    std::optional<FrameMark> mark;
};
JpegInfo lookAt(const std::string& jpeg);
