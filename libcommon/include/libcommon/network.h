// Talking to encoders: HTTP downloads, TCP and UDP connections, response headers, addresses.
//
// Results of the downloads:
//   > 0        bytes placed in the buffer; a full buffer ends the transfer with success
//   0          success without a body (or without a buffer)
//   -1 to -99  transport failure (no address, no connection, time over, broken transfer, interrupted)
//   -100 to -999  minus the HTTP status of a refusal: -401, -404, ...
//   -4011      downloadHTTP only: no connection could be made
//
// Timeouts are seconds for the whole call; 0 or less means 10. Hostile answers (oversized, truncated, endless, slow,
// binary) cause at most a failure within the timeout and use a bounded amount of memory. A buffer gets at most `size`
// bytes and no terminating zero; with a null buffer the body is read and dropped, 1 MiB at most.
//
// Interruption: when a handler for SIGUSR1 is installed and the signal comes during a wait, the handler runs,
// setInterrupted() is called and the operation fails at once. On the main thread the waits also let SIGINT and
// SIGCHLD in, atomically, where the caller keeps them blocked.
//
// Connections to one encoder are kept and reused by the downloads; closed after some seconds without use.
// TLS certificates are verified: "Network.TLS.Verify" = no switches that off, "Network.TLS.CAFile" names the
// authorities to trust; a refusal is logged with host and reason. Credentials are never logged.
// One thread at a time.
#pragma once

#include <libcommon/istring.h>

#include <cstddef>
#include <map>
#include <string>

// Index into connectModeString: how an encoder is reached.
enum ConnectMode : int {
    CONNECT_AUTO = 0,
    CONNECT_HTTP = 1,      // no credentials needed
    CONNECT_HTTP_AUTH = 2, // HTTP with credentials
    CONNECT_HTTPS = 3,
    CONNECT_UNKNOWN = 4,
};

inline constexpr int hostBufferSize = 1024;  // bytes of a host out buffer
inline constexpr int errorBufferSize = 1024; // bytes of an error text buffer

// Fetches `path` from the encoder at `address` (HOST[:PORT]): plain HTTP, after a 401 with credentials (Basic, or
// Digest where it is asked for), then HTTPS when no HTTP answer came, or only a 400 from the port that the address
// names. On success *mode, *port and host (a buffer of hostBufferSize) tell how; each may be null, and a failure leaves
// them unchanged. The path is sent unchanged, unescaped; one with a control character is refused.
int download(const std::string& address, const std::string& user, const std::string& password,
             const std::string& path, char* buffer, int size, int timeout, ConnectMode* mode,
             unsigned short* port, char* host);

// One HTTP request; `withCredentials` tells whether user and password answer a 401. `errorText` (a buffer of
// errorBufferSize, or null) gets the reason of a failure.
int downloadHTTP(const std::string& host, unsigned short port, const std::string& path, bool withCredentials,
                 const std::string& user, const std::string& password, char* buffer, int size, int timeout,
                 char* errorText);

// One HTTPS request, with credentials where they are asked for and `user` is not empty.
int downloadHTTPS(const std::string& host, unsigned short port, const std::string& path,
                  const std::string& user, const std::string& password, char* buffer, int size, int timeout);

// Connects over TCP, trying every address of the host within `timeout` seconds. The descriptor carries the
// timeout as its receive and send timeout, which parseResponseHeader and writeFD take as the limit of a whole
// call. `blocking` false: the descriptor is non-blocking. -1 with errno on failure (EHOSTUNREACH also for a name
// that does not exist, ETIMEDOUT, EINTR).
int connectTCP(const std::string& host, unsigned short port, bool blocking, int timeout);

// A UDP socket bound to the local `port` on all interfaces. `fromHostOnly`: it receives only packets from `host`, from
// any port. -1 with errno on failure.
int connectUDP(const std::string& host, unsigned short port, bool fromHostOnly);

// An RTSP or HTTP response's first line and headers.
struct ResponseHeader {
    int statusCode = 0; // 100 to 999
    std::string reason;
    std::map<istring, std::string> headers; // a repeated name: values joined with ", "
};

// Reads one response header from `fd` and not a byte more, so that a body can follow. Interleaved RTP packets
// before it are skipped. At most 16 KiB. 0, or -1 with errno (EPROTO malformed or closed early,
// ETIMEDOUT, EMSGSIZE, EINTR).
int parseResponseHeader(int fd, ResponseHeader& header);

// Writes all bytes: 1; anything else is a failure with errno.
int writeFD(int fd, const void* buffer, std::size_t length);

std::string base64encode(const void* bytes, std::size_t length);

// Splits HOST, HOST:PORT, [IPv6] or [IPv6]:PORT. `port` comes preset to the default and is replaced by a port
// written in the address (1 to 65535). 0; -1 and a log line for anything else, with an empty host, so that
// no connection is ever made to a half-read address.
int splitAddress(const std::string& address, std::string& host, unsigned short& port);

// Lower-cases ASCII letters in place.
void toLower(char* text);

namespace libcommon {

// Why splitAddress() does not take `address`, as in "the port is not a number from 1 to 65535"; "" when it does.
// Logs nothing. Any thread.
std::string whyNotAddress(const std::string& address);

} // namespace libcommon
