// A TCP connection, plain or TLS. libcurl makes those with TLS and verifies the certificate as for HTTP; it is loaded only
// for them.
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

    // Connects within that time; 0: within ten seconds, or with TLS within libcurl's own limit. Without TLS the time is
    // rounded up to seconds. Called once. Returns "" or the reason of the failure, for the log.
    std::string open(const std::string& host, std::uint16_t port, bool tls, int timeoutMs);

    // Sends all bytes within 5 seconds. False when the connection broke or the time is over.
    bool send(std::string_view bytes);

    enum class Read { some, nothing, closed };
    // Receives what has arrived, without waiting; `count` is set to the number of bytes.
    Read receive(char* bytes, std::size_t size, std::size_t& count);

    int descriptor() const;   // to poll; -1 when not open
    std::string peer() const; // the encoder's numeric address

    // How a connection sends and receives, plain or with TLS.
    class Transport;

private:
    std::unique_ptr<Transport> transport_; // null: not open
};

// The TLS settings of parameter file 0.
struct TlsChecks {
    bool verified = true;
    std::string authorities; // file (PEM) of those to trust; "": the system's
};
TlsChecks tlsChecks();

// Applies them to a libcurl handle. False when libcurl refuses one.
bool configureTls(void* curlHandle);

} // namespace streams
