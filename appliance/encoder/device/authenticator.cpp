#include "appliance/encoder/device/authenticator.h"

#include "appliance/serving/text.h"

#include <array>
#include <charconv>
#include <chrono>
#include <map>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <vector>

namespace {

constexpr const char* realm = "video encoder";
constexpr std::int64_t nonceLifeSeconds = 300;

std::string hex(const unsigned char* bytes, std::size_t count) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

// Removes the scheme ("Basic") from the front and returns it.
std::string_view takeScheme(std::string_view& authorization) {
    authorization = trimmed(authorization);
    const std::string_view scheme = authorization.substr(0, authorization.find(' '));
    authorization = trimmed(authorization.substr(scheme.size()));
    return scheme;
}

// Reads name=value and name="value" fields, separated by commas. `\` escapes a character within quotes.
std::map<std::string, std::string> parseFields(std::string_view text) {
    std::map<std::string, std::string> fields;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t equals = text.find('=', at);
        if (equals == std::string_view::npos)
            break;
        const std::string name(trimmed(text.substr(at, equals - at)));
        std::string value;
        at = equals + 1;
        if (at < text.size() && text[at] == '"') {
            for (++at; at < text.size() && text[at] != '"'; ++at) {
                if (text[at] == '\\' && at + 1 < text.size())
                    ++at;
                value += text[at];
            }
            at = text.find(',', at);
        } else {
            const std::size_t comma = text.find(',', at);
            value = trimmed(text.substr(at, comma == std::string_view::npos ? comma : comma - at));
            at = comma;
        }
        fields[name] = value;
        at = at == std::string_view::npos ? text.size() : at + 1;
    }
    return fields;
}

} // namespace

std::string md5Hex(std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
    unsigned int size = 0;
    EVP_Digest(text.data(), text.size(), sum.data(), &size, EVP_md5(), nullptr);
    return hex(sum.data(), size);
}

std::string base64Encoded(std::string_view bytes) {
    std::vector<unsigned char> encoded(4 * ((bytes.size() + 2) / 3) + 1);
    const int length = EVP_EncodeBlock(encoded.data(), reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
    return {encoded.begin(), encoded.begin() + length};
}

std::string base64Decoded(std::string_view text) {
    std::string packed;
    for (const char c : text) {
        if (c != ' ' && c != '\r' && c != '\n' && c != '\t')
            packed += c;
    }
    const std::size_t padding = packed.size() - std::min(packed.find_last_not_of('=') + 1, packed.size());
    if (packed.empty() || packed.size() % 4 != 0 || padding > 2)
        return {};
    std::vector<unsigned char> decoded(packed.size() / 4 * 3);
    const int length = EVP_DecodeBlock(decoded.data(), reinterpret_cast<const unsigned char*>(packed.data()),
                                       static_cast<int>(packed.size()));
    if (length < 0)
        return {};
    return {decoded.begin(), decoded.begin() + length - static_cast<long>(padding)};
}

Authenticator::Authenticator(std::string user, std::string password, bool digest)
    : user_(std::move(user)), password_(std::move(password)), digest_(digest) {
    std::array<unsigned char, 16> random{};
    RAND_bytes(random.data(), static_cast<int>(random.size()));
    secret_ = hex(random.data(), random.size());
}

std::int64_t Authenticator::now() const {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::seconds>(time).count() + clockShift_;
}

std::string Authenticator::nonceOf(std::int64_t time) const {
    const std::string stamp = std::to_string(time);
    return stamp + "-" + md5Hex(stamp + ":" + secret_);
}

std::string Authenticator::challenge(bool stale) const {
    if (!digest_)
        return basicChallenge();
    return std::string("Digest realm=\"") + realm + "\", nonce=\"" + nonceOf(now()) +
           "\", algorithm=MD5, qop=\"auth\"" + (stale ? ", stale=true" : "");
}

std::string Authenticator::basicChallenge() const {
    return std::string("Basic realm=\"") + realm + "\"";
}

bool Authenticator::basicAccepted(std::string_view authorization) const {
    if (user_.empty())
        return true;
    return equalIgnoringCase(takeScheme(authorization), "Basic") &&
           base64Decoded(authorization) == user_ + ":" + password_;
}

Authenticator::Verdict Authenticator::judge(std::string_view authorization, std::string_view method,
                                            std::string_view target) const {
    if (user_.empty())
        return Verdict::Accepted;
    if (!digest_)
        return basicAccepted(authorization) ? Verdict::Accepted : Verdict::Refused;
    if (!equalIgnoringCase(takeScheme(authorization), "Digest"))
        return Verdict::Refused;
    return judgeDigest(authorization, method, target);
}

Authenticator::Verdict Authenticator::judgeDigest(std::string_view text, std::string_view method,
                                                  std::string_view target) const {
    std::map<std::string, std::string> fields = parseFields(text);
    std::int64_t time = 0;
    const std::string nonce = fields["nonce"];
    std::from_chars(nonce.data(), nonce.data() + nonce.size(), time);
    // The URI is part of the signed text. Without this comparison a signature for one page would open every page.
    if (fields["username"] != user_ || fields["realm"] != realm || fields["uri"] != target ||
        nonce != nonceOf(time))
        return Verdict::Refused;

    const std::string first = md5Hex(user_ + ":" + realm + ":" + password_);
    const std::string second = md5Hex(std::string(method) + ":" + std::string(target));
    std::string expected;
    if (fields["qop"].empty())
        expected = md5Hex(first + ":" + nonce + ":" + second);
    else if (fields["qop"] == "auth" && !fields["nc"].empty() && !fields["cnonce"].empty())
        expected =
            md5Hex(first + ":" + nonce + ":" + fields["nc"] + ":" + fields["cnonce"] + ":auth:" + second);
    if (expected.empty() || fields["response"] != expected)
        return Verdict::Refused;
    return now() - time > nonceLifeSeconds ? Verdict::Stale : Verdict::Accepted;
}

std::string Authenticator::claimedUser(std::string_view authorization) {
    const std::string_view scheme = takeScheme(authorization);
    if (equalIgnoringCase(scheme, "Basic")) {
        const std::string pair = base64Decoded(authorization);
        return pair.substr(0, pair.find(':'));
    }
    if (equalIgnoringCase(scheme, "Digest"))
        return parseFields(authorization)["username"];
    return {};
}
