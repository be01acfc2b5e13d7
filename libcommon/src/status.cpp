#include <libcommon/status.h>

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/made_once.h"
#include "libcommon/src/status_folder.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>
#include <libcommon/text.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <unistd.h>

namespace local {

namespace {

// Made by the first access of any thread.
constinit MadeOnce<std::string> store;

} // namespace

const std::string& statusStore() {
    return store.get([] { return new std::string(libcommon::appliancePath("/run/decoder/source/")); });
}

std::string statusLockPath() {
    return statusStore() + ".lock";
}

std::string statusFolder(int index) {
    return statusStore() + std::to_string(index) + "/";
}

std::string statusOwnerPath(int index) {
    return statusFolder(index) + ".source";
}

std::string configuredSource(const SubGroups& sources, std::size_t index) {
    if (index >= sources.size())
        return "";
    const SourceParams source = sources[index];
    std::string text;
    for (const char* key : {"Address", "VideoSourceNumber", "VideoSourceType"}) {
        const auto found = source.find(key);
        text += *key == 'A' ? "" : "#";
        text += found == source.end() ? "" : found->second;
    }
    return text;
}

namespace {

constexpr std::size_t maximumKey = 64;
constexpr std::size_t maximumValue = 65536;

bool isKey(const std::string& key) {
    return !key.empty() && key.size() <= maximumKey && std::all_of(key.begin(), key.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    });
}

bool isValid(int index, const std::string& key) {
    if (index >= 0 && isKey(key))
        return true;
    logmsg(3, "There is no status value \"%.100s\" of source %d.", key.c_str(), index);
    return false;
}

void rememberOwner(int index) {
    const std::string path = statusOwnerPath(index);
    if (access(path.c_str(), F_OK) == 0)
        return;
    const std::string owner = configuredSource(getSubGroups(0, "Encoder"), static_cast<std::size_t>(index));
    if (!replaceSmallFile(path, owner))
        logmsg(3, "Failed to write %s. (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
}

// Replacing a file takes a disk milliseconds, and most writes repeat the present value: a source that is shared or
// shown again has the same values as before.
bool holds(const std::string& path, const std::string& text) {
    std::string current;
    return readSmallFile(path, maximumValue + 1, current) && current == text;
}

// Only for our own values of several lines, such as the trace of a detection.
std::string printableLines(std::string_view text) {
    std::string lines;
    for (std::size_t end = 0; (end = text.find('\n')) != std::string_view::npos; text.remove_prefix(end + 1))
        lines += libcommon::printable(text.substr(0, end)) + '\n';
    return lines + libcommon::printable(text);
}

// Whether a write would change nothing. Needs no lock: other processes' changes come before or after this look.
bool isPresent(int index, const std::string& path, const std::string& value) {
    if (value.empty())
        return access(path.c_str(), F_OK) != 0 && errno == ENOENT;
    return holds(path, value + "\n") && access(statusOwnerPath(index).c_str(), F_OK) == 0;
}

void write(int index, const std::string& key, const std::string& value) {
    const std::string path = statusFolder(index) + key;
    // A select writes all values of its source anew, so that this is a part of every select's time.
    if (isPresent(index, path, value))
        return;
    const LockedFile lock(statusLockPath().c_str());
    if (!lock) {
        logmsg(3, "Failed to write %s: %s; the value is lost. (errno=%d %s)", path.c_str(),
               lock.reason().c_str(), errno, std::strerror(errno));
        return;
    }
    bool done = false;
    if (value.empty()) {
        done = unlink(path.c_str()) == 0 || errno == ENOENT;
    } else {
        rememberOwner(index);
        done = replaceSmallFile(path, value + "\n");
    }
    if (!done)
        logmsg(3, "Failed to write %s. (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
}

} // namespace

} // namespace local

void status(int index, const std::string& key, const char* value) {
    if (!local::isValid(index, key))
        return;
    const std::string_view text = value == nullptr ? "" : value;
    if (text.size() > local::maximumValue) {
        logmsg(3, "Status value \"%s\" of source %d is too long: %zu bytes.", key.c_str(), index,
               text.size());
        return;
    }
    // Most values come from encoders. People see them in terminals and on pages.
    const bool severalLines = key == "DetectionTrace";
    local::write(index, key, severalLines ? local::printableLines(text) : libcommon::printable(text));
}

void status(int index, const std::string& key, int value) {
    status(index, key, std::to_string(value).c_str());
}

std::string status(int index, const std::string& key) {
    if (!local::isValid(index, key))
        return "";
    const std::string path = local::statusFolder(index) + key;
    std::string text;
    if (!local::readSmallFile(path, local::maximumValue + 1, text)) {
        if (errno != ENOENT)
            logmsg(3, "Failed to read %s. (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
        return "";
    }
    if (text.ends_with('\n'))
        text.pop_back();
    return text;
}

void copyStatus(int fromIndex, int toIndex, const std::string& key) {
    if (local::isValid(fromIndex, key) && fromIndex != toIndex)
        status(toIndex, key, status(fromIndex, key).c_str());
}

namespace libcommon {

StatusPlace makeStatusPlace(int index) {
    StatusPlace place{.folder = local::statusFolder(index), .lock = local::statusLockPath()};
    local::makeFoldersFor(place.folder.c_str());
    const local::Descriptor lock(local::openLockFile(place.lock.c_str()));
    return place;
}

} // namespace libcommon
