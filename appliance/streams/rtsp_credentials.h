// Credentials for RTSP requests: Basic and Digest.
#pragma once

#include <string>
#include <vector>

namespace streams {

class RtspCredentials {
public:
    RtspCredentials(std::string user, std::string password);

    // Takes the challenges of a 401 ("WWW-Authenticate" values); Digest (MD5 or SHA-256) is preferred to Basic.
    // True when one of them can be answered and was not already answered in the same way.
    bool challenge(const std::vector<std::string>& challenges);

    // The "Authorization" value of a request; "" before the first challenge.
    std::string answer(const std::string& method, const std::string& url);

private:
    std::string digest(const std::string& method, const std::string& url);

    std::string user_;
    std::string password_;
    enum class Scheme { none, basic, digest } scheme_ = Scheme::none;
    std::string realm_;
    std::string nonce_;
    std::string opaque_;
    std::string algorithm_;
    bool withQuality_ = false; // qop=auth
    unsigned count_ = 0;
};

} // namespace streams
