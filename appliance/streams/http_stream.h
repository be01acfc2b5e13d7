// Receives an endless body over HTTP or HTTPS.
//
// Credentials answer Basic and Digest challenges. Certificates are verified as everywhere in the appliance:
// "Network.TLS.Verify" = no in parameter file 0 turns that off, "Network.TLS.CAFile" names the trusted
// authorities. The limit is 64 KiB for a response header and 16 KiB for the body of a refusal. Redirections are
// not followed and proxies are not used.
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
    std::string user; // "": no credentials
    std::string password;
    std::string target; // "/path?query"
    int connectMs = 0;  // time limit for connecting; 0: libcurl's own limit
};

struct HttpTaker {
    std::function<bool(const std::string& contentType)> begin;      // status 200; false ends the transfer
    std::function<bool(const char* bytes, std::size_t count)> body; // false ends the transfer
    // May be empty. Asked at least once a second, even while nothing comes; false ends the transfer.
    std::function<bool()> wanted = {};
};

// Receives until the stream ends or fails, or the taker returns false. Returns the reason, for the log. Blocks
// its thread.
std::string receiveHttp(const HttpSource& source, const HttpTaker& taker);

// Prepares a libcurl handle for such a request, all but the functions that take its answer, and `source` may end before
// the handle. `error` is a buffer of CURL_ERROR_SIZE bytes that outlives the handle. False when libcurl refuses.
bool configureRequest(void* curlHandle, const HttpSource& source, char* error);

// Loads and prepares libcurl, for a program that always needs it. Called once, before other threads exist. Without it
// libcurl is loaded for the first stream with TLS or a user name.
void startHttp();

} // namespace streams
