#include "recorder/secrets.h"

#include <libcommon/network.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cctype>
#include <functional>
#include <mutex>
#include <unordered_set>
#include <vector>

namespace recorder {
namespace {

constexpr std::array kept{"Name",        "Address",       "VideoSourceType", "VideoSourceNumber",
                          "AutoEnabled", "ManualEnabled", "DisplayTime",     "PTZ",
                          "Resolution",  "Compression",   "InterlaceMode"};
constexpr std::array flags{"UserName", "Password"};

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
};

// The secrets of one length. Thousands of sources may have thousands of passwords, of a few lengths.
struct Group {
    std::size_t length;
    std::unordered_set<std::string, TextHash, std::equal_to<>> secrets;
};

// All process-wide state of this file: the passwords that were seen, the longest first, and how many they are. Written by
// the main thread, read by any thread. Never destroyed.
std::mutex& mutex = *new std::mutex;
std::vector<Group>& groups = *new std::vector<Group>;
std::atomic<std::size_t> known{0};
constexpr std::size_t mostSecrets = 20000; // two for each of 10000 sources

Group& groupOf(std::size_t length) {
    const auto found =
        std::ranges::find_if(groups, [&](const Group& group) { return group.length <= length; });
    if (found != groups.end() && found->length == length)
        return *found;
    return *groups.insert(found, Group{length, {}});
}

void remember(const std::string& secret) {
    const std::lock_guard lock(mutex);
    if (!secret.empty() && known < mostSecrets && groupOf(secret.size()).secrets.insert(secret).second)
        ++known;
}

void rememberLogIn(const std::string& user, const std::string& password) {
    if (password.empty())
        return;
    remember(password);
    const std::string both = user + ":" + password;
    remember(base64encode(both.data(), both.size()));
}

// user:PASSWORD@ in an address or a URL.
void rememberUserOf(std::string_view address) {
    const std::size_t scheme = address.find("://");
    if (scheme != std::string_view::npos)
        address.remove_prefix(scheme + 3);
    const std::size_t at = address.substr(0, address.find('/')).rfind('@');
    const std::size_t colon = address.find(':');
    if (at != std::string_view::npos && colon < at)
        rememberLogIn(std::string(address.substr(0, colon)),
                      std::string(address.substr(colon + 1, at - colon - 1)));
}

bool isWordCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
}

// Whether the secret at this place is hidden: a short one may be a part of any word or number.
bool isHidden(std::string_view text, std::size_t at, std::size_t length) {
    constexpr std::size_t shortSecret = 3;
    if (length > shortSecret)
        return true;
    const std::size_t end = at + length;
    return (at == 0 || !isWordCharacter(text[at - 1])) && (end == text.size() || !isWordCharacter(text[end]));
}

void hide(std::string& text, const Group& group) {
    for (std::size_t at = 0; at + group.length <= text.size(); ++at) {
        const std::string_view piece = std::string_view(text).substr(at, group.length);
        if (!group.secrets.contains(piece) || !isHidden(text, at, group.length))
            continue;
        text.replace(at, group.length, hidden);
        at += hidden.size() - 1;
    }
}

std::string valueOf(const SourceParams& source, const char* key) {
    const auto found = source.find(key);
    return found == source.end() ? "" : found->second;
}

} // namespace

SourceParams recordable(const SourceParams& source) {
    rememberLogIn(valueOf(source, "UserName"), valueOf(source, "Password"));
    for (const auto& [key, value] : source)
        if (value.find('@') != std::string::npos)
            rememberUserOf(value);
    SourceParams result;
    for (const char* key : kept)
        if (const auto found = source.find(key); found != source.end())
            result[key] = found->second;
    if (const auto address = result.find("Address"); address != result.end())
        address->second = withoutUser(address->second);
    for (const char* key : flags)
        if (const auto found = source.find(key); found != source.end())
            result[key] = found->second.empty() ? "" : hidden;
    return result;
}

std::string withoutSecrets(std::string_view text) {
    std::string result(text);
    if (known == 0 || text.empty())
        return result;
    const std::lock_guard lock(mutex);
    for (const Group& group : groups)
        hide(result, group);
    return result;
}

std::string withoutUser(std::string_view address) {
    const std::size_t scheme = address.find("://");
    const std::size_t begin = scheme == std::string_view::npos ? 0 : scheme + 3;
    const std::size_t at = address.substr(0, address.find('/', begin)).rfind('@');
    if (at == std::string_view::npos || at < begin)
        return std::string(address);
    return std::string(address.substr(0, begin)) + std::string(address.substr(at + 1));
}

} // namespace recorder
