// The server's side of HTTP credentials: Basic, and Digest (MD5, with and without qop "auth").
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class Authenticator {
public:
    enum class Verdict { Accepted, Refused, Stale };

    // With an empty user every request is accepted.
    Authenticator(std::string user, std::string password, bool digest);

    // Checks the value of an Authorization header ("" if there was none) of a request for `target`. Stale means that
    // the password is right but the nonce is older than five minutes.
    Verdict judge(std::string_view authorization, std::string_view method, std::string_view target) const;

    // The value of a WWW-Authenticate header.
    std::string challenge(bool stale) const;

    bool asksForCredentials() const { return !user_.empty(); }

    // The user name in an Authorization header, unchecked, for the log; "" if there is none.
    static std::string claimedUser(std::string_view authorization);

    // For tests: moves the clock that ages nonces forward by so many seconds.
    void shiftClock(std::int64_t seconds) { clockShift_ = seconds; }

private:
    bool basicAccepted(std::string_view authorization) const;
    std::string basicChallenge() const;
    std::int64_t now() const;
    std::string nonceOf(std::int64_t time) const;
    Verdict judgeDigest(std::string_view fields, std::string_view method, std::string_view target) const;

    std::string user_;
    std::string password_;
    bool digest_;
    std::string secret_; // part of every nonce, so that clients cannot make one
    std::int64_t clockShift_ = 0;
};

// The MD5 sum of a text in lower-case hexadecimal digits.
std::string md5Hex(std::string_view text);

std::string base64Encoded(std::string_view bytes);
// Empty if the text is not base64. Blanks and line ends are ignored.
std::string base64Decoded(std::string_view text);
