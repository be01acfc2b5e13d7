#include "appliance/panel/access/password_hash.h"

#include "appliance/panel/access/secrets.h"

#include <array>
#include <crypt.h>
#include <memory>
#include <stdexcept>

namespace panel {
namespace {

// Of a password that nobody knows any more.
constexpr const char* spareHash = "$y$j9T$n0TGsVWyxC4sO9pWxUu8W/$HMmuDpMIVpZXBW.wLEJZzWKJVcTnPTQ1wWFGWx4dTu9";

// The structure is large and holds traces of the password: crypt_rn() clears what it used.
std::string crypted(const std::string& password, const std::string& setting) {
    const auto data = std::make_unique<crypt_data>();
    const char* hash = crypt_rn(password.c_str(), setting.c_str(), data.get(), sizeof *data);
    return hash == nullptr ? "" : hash;
}

} // namespace

std::string passwordHash(const std::string& password) {
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
    if (crypt_gensalt_rn("$y$", 0, nullptr, 0, setting.data(), setting.size()) == nullptr)
        throw std::runtime_error("libcrypt makes no yescrypt hashes here");
    std::string hash = crypted(password, setting.data());
    if (hash.empty())
        throw std::runtime_error("the password can't be hashed");
    return hash;
}

bool fitsPassword(const std::string& password, const std::string& hash) {
    const std::string found = crypted(password, hash.empty() ? spareHash : hash);
    return !hash.empty() && !found.empty() && sameSecret(found, hash);
}

} // namespace panel
