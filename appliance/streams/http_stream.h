// An endless body over HTTP or HTTPS.
//
// Credentials answer Basic and Digest challenges. Certificates are verified as everywhere in the appliance:
// parameter file 0's "Network.TLS.Verify" = no switches that off, "Network.TLS.CAFile" names the authorities
// to trust. Headers are limited to 64 KiB, the body of a refusal to 16 KiB; redirections are not followed,
// proxies not used.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace streams {

struct HttpSource {
    std::string host; // name, IPv4 or IPv6 address
    std::uint16_t port = 80;
    bool https = false;
    std::string user; // "" no credentials
    std::string password;
    std::string target; // "/path?query"
    int connectMs = 0;  // time to connect in; 0: libcurl's own limit
};

struct HttpTaker {
    std::function<bool(const std::string& contentType)> begin;      // a 200 came; false ends the transfer
    std::function<bool(const char* bytes, std::size_t count)> body; // false ends the transfer
};

// Receives until the stream ends, fails or the taker has enough. Returns why, for people. Blocks its thread;
// one call a thread at a time.
std::string receiveHttp(const HttpSource& source, const HttpTaker& taker);

// Prepares what all transfers of the process share. Once, before there are other threads.
void startHttp();

} // namespace streams
