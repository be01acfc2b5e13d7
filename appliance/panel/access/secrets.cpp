#include "appliance/panel/access/secrets.h"

#include <array>
#include <openssl/crypto.h>
#include <openssl/sha.h>
#include <span>
#include <stdexcept>
#include <sys/random.h>

namespace panel {
namespace {

std::string hexText(std::span<const unsigned char> bytes) {
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace

std::string randomSecret() {
    std::array<unsigned char, 32> bytes{};
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the system has no random numbers");
    return hexText(bytes);
}

std::string sha256Text(std::string_view text) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return hexText(digest);
}

bool sameSecret(std::string_view a, std::string_view b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

} // namespace panel
