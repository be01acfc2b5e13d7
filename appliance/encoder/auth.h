// Credentials: Basic and Digest (MD5, with qop "auth" and without), as a server asks for and checks them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class Authenticator {
public:
    enum class Verdict { Accepted, Refused, Stale };

    // With an empty user everybody is accepted.
    Authenticator(std::string user, std::string password, bool digest);

    // Judges the value of an Authorization header ("" when there was none) of a request for `target`. Stale:
    // right, but with a nonce that is older than five minutes.
    Verdict judge(std::string_view authorization, std::string_view method, std::string_view target) const;

    // The value of a WWW-Authenticate header.
    std::string challenge(bool stale) const;

    bool asksForCredentials() const { return !user_.empty(); }

    // The user's name that an Authorization header claims, for the log; "" when it has none.
    static std::string claimedUser(std::string_view authorization);

    // For tests: shifts the clock that ages nonces, in seconds.
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
    std::string secret_; // makes nonces that nobody else can make
    std::int64_t clockShift_ = 0;
};

// The MD5 sum of a text in small hexadecimal digits.
std::string md5Hex(std::string_view text);

std::string base64Encoded(std::string_view bytes);
// Decodes; an empty text when it is not base64. Blanks and line ends are passed over.
std::string base64Decoded(std::string_view text);
