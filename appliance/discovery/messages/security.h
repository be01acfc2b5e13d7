// The user name token of SOAP messages: a digest of the password, so that the password itself is never sent.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

struct XmlElement;

std::string base64Of(std::string_view bytes);
// Nothing but base64 and blanks is taken: "" for every other text.
std::string bytesOfBase64(std::string_view text);

// `count` bytes that nobody can guess.
std::string randomBytes(std::size_t count);
// "urn:uuid:" and a random UUID.
std::string randomUuid();

// Seconds since 1970, UTC, as "2026-11-22T09:30:00Z".
std::string isoTime(std::int64_t seconds);
// -1 if the text is no such time. A fraction of a second is dropped.
std::int64_t secondsOfIsoTime(std::string_view text);

struct UserNameToken {
    std::string user;
    std::string digest;  // base64 of SHA-1 over nonce, creation time and password
    std::string nonce;   // base64
    std::string created; // ISO 8601
};

// A token for one message, created at `seconds` since 1970 of the receiver's clock.
UserNameToken makeToken(const std::string& user, std::string_view password, std::int64_t seconds);

// base64 of SHA-1 over the three, `nonce` as bytes.
std::string tokenDigest(std::string_view nonce, std::string_view created, std::string_view password);

// The element <wsse:Security> with the token, for the header of a message.
std::string securityHeader(const UserNameToken& token);

// The token in a message's <Security> element. All members are empty if there is none, and `digest` is empty if the
// password is there as plain text.
UserNameToken readToken(const XmlElement& header);
