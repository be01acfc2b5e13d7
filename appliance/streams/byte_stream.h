// A TCP connection, plain or over TLS, connected and verified as libcurl does it for HTTP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace streams {

class ByteStream {
public:
    ByteStream();
    ~ByteStream();
    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    // Connects within that time (0: libcurl's own limit). "" or why it failed, for people.
    std::string open(const std::string& host, std::uint16_t port, bool tls, int timeoutMs);

    // Sends all of it, within 5 seconds. False when the connection is broken.
    bool send(std::string_view bytes);

    enum class Read { some, nothing, closed };
    // Receives what is there, without waiting; `count` gets the number of bytes.
    Read receive(char* bytes, std::size_t size, std::size_t& count);

    int descriptor() const;   // to wait on; -1 when not open
    std::string peer() const; // the numeric address of the other side

private:
    struct Handle;
    std::unique_ptr<Handle> handle_;
};

// Applies parameter file 0's TLS settings to a libcurl handle. False when libcurl refuses them.
bool configureTls(void* curlHandle);

} // namespace streams
