#include "appliance/discovery/messages/security.h"

#include "appliance/discovery/messages/xml.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <stdexcept>
#include <vector>

namespace {

constexpr std::size_t nonceBytes = 16;
constexpr const char* secext =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd";
constexpr const char* utility =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd";
constexpr const char* digestType = "http://docs.oasis-open.org/wss/2004/01/"
                                   "oasis-200401-wss-username-token-profile-1.0#PasswordDigest";
constexpr const char* base64Type = "http://docs.oasis-open.org/wss/2004/01/"
                                   "oasis-200401-wss-soap-message-security-1.0#Base64Binary";

} // namespace

std::string base64Of(std::string_view bytes) {
    std::vector<unsigned char> encoded(4 * ((bytes.size() + 2) / 3) + 1);
    const int length = EVP_EncodeBlock(encoded.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    return {encoded.begin(), encoded.begin() + length};
}

std::string bytesOfBase64(std::string_view text) {
    std::string packed;
    for (const char c : text) {
        if (std::string_view(" \t\r\n").find(c) == std::string_view::npos) {
            packed += c;
        }
    }
    const std::size_t end = packed.find_last_not_of('=');
    const std::size_t padding = end == std::string::npos ? packed.size() : packed.size() - end - 1;
    if (packed.empty() || packed.size() % 4 != 0 || padding > 2) {
        return {};
    }
    std::vector<unsigned char> decoded(packed.size() / 4 * 3);
    const int length = EVP_DecodeBlock(decoded.data(), reinterpret_cast<const unsigned char*>(packed.data()),
                                       static_cast<int>(packed.size()));
    if (length < 0) {
        return {};
    }
    return {decoded.begin(), decoded.begin() + length - static_cast<std::ptrdiff_t>(padding)};
}

std::string randomBytes(std::size_t count) {
    std::vector<unsigned char> bytes(count);
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        throw std::runtime_error("the system has no random numbers");
    }
    return {bytes.begin(), bytes.end()};
}

std::string randomUuid() {
    std::string bytes = randomBytes(16);
    bytes[6] = static_cast<char>((bytes[6] & 0x0f) | 0x40); // version 4: random
    bytes[8] = static_cast<char>((bytes[8] & 0x3f) | 0x80);
    std::string text = "urn:uuid:";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) {
            text += '-';
        }
        std::array<char, 3> digits{};
        std::snprintf(digits.data(), digits.size(), "%02x", static_cast<unsigned char>(bytes[i]));
        text += digits.data();
    }
    return text;
}

std::string isoTime(std::int64_t seconds) {
    const std::time_t time = static_cast<std::time_t>(seconds);
    std::tm parts{};
    std::array<char, 40> text{};
    if (gmtime_r(&time, &parts) == nullptr) {
        return "1970-01-01T00:00:00Z";
    }
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::int64_t secondsOfIsoTime(std::string_view text) {
    std::tm parts{};
    const std::string copy(text.substr(0, 40));
    const char* const end = strptime(copy.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    return end == nullptr ? -1 : static_cast<std::int64_t>(timegm(&parts));
}

std::string tokenDigest(std::string_view nonce, std::string_view created, std::string_view password) {
    std::string all(nonce);
    all.append(created).append(password);
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int size = 0;
    EVP_Digest(all.data(), all.size(), sum.data(), &size, EVP_sha1(), nullptr);
    return base64Of({reinterpret_cast<const char*>(sum.data()), size});
}

UserNameToken makeToken(const std::string& user, std::string_view password, std::int64_t seconds) {
    const std::string nonce = randomBytes(nonceBytes);
    const std::string created = isoTime(seconds);
    return {user, tokenDigest(nonce, created, password), base64Of(nonce), created};
}

std::string securityHeader(const UserNameToken& token) {
    return std::string("<wsse:Security s:mustUnderstand=\"1\" xmlns:wsse=\"") + secext + "\" xmlns:wsu=\"" +
           utility + "\"><wsse:UsernameToken><wsse:Username>" + xmlEscaped(token.user) +
           "</wsse:Username><wsse:Password Type=\"" + digestType + "\">" + token.digest +
           "</wsse:Password><wsse:Nonce EncodingType=\"" + base64Type + "\">" + token.nonce +
           "</wsse:Nonce><wsu:Created>" + token.created +
           "</wsu:Created></wsse:UsernameToken></wsse:Security>";
}

UserNameToken readToken(const XmlElement& header) {
    const XmlElement* const token = header.at("Security/UsernameToken");
    if (token == nullptr) {
        return {};
    }
    UserNameToken read{token->textAt("Username"), {}, token->textAt("Nonce"), token->textAt("Created")};
    const XmlElement* const password = token->child("Password");
    if (password != nullptr && password->attribute("Type").ends_with("#PasswordDigest")) {
        read.digest = password->text;
    }
    return read;
}
