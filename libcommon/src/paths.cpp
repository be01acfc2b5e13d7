#include <libcommon/paths.h>

#include "libcommon/src/run_path.h"

#include <atomic>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

// The root once more, as plain bytes for signal handlers: written by the first applianceRoot(), read when
// ready.
char rootBytes[PATH_MAX];
std::atomic<bool> rootBytesReady{false};

bool append(char* path, std::size_t size, const char* text) {
    const std::size_t have = std::strlen(path);
    const std::size_t length = std::strlen(text);
    if (have + length >= size)
        return false;
    std::memcpy(path + have, text, length + 1);
    return true;
}

} // namespace

namespace libcommon {

const std::string& applianceRoot() {
    // Never destroyed: threads still ask for paths while the process exits.
    static const std::string& root = *[] {
        const char* value = std::getenv("APPLIANCE_ROOT");
        auto* text = new std::string(value == nullptr ? "" : value);
        rootBytesReady = append(rootBytes, sizeof rootBytes, text->c_str());
        return text;
    }();
    return root;
}

std::string appliancePath(const std::string& absolutePath) {
    return applianceRoot() + absolutePath;
}

} // namespace libcommon

namespace local {

bool runPath(char* path, std::size_t size, const char* prefix, const char* name, const char* suffix) {
    path[0] = '\0';
    const char* root = rootBytes;
    if (!rootBytesReady) {
        // A handler may run while applianceRoot() is on its way; it takes the same value from the source.
        root = std::getenv("APPLIANCE_ROOT");
        if (root == nullptr)
            root = "";
    }
    return append(path, size, root) && append(path, size, "/run/decoder/") && append(path, size, prefix) &&
           append(path, size, name) && append(path, size, suffix);
}

} // namespace local
