#include <libcommon/paths.h>

#include "libcommon/src/made_once.h"
#include "libcommon/src/run_path.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

// Made by the first applianceRoot(); read by any thread and signal handler.
constinit local::MadeOnce<std::string> root;

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
    return root.get([] {
        const char* value = std::getenv("APPLIANCE_ROOT");
        return new std::string(value == nullptr ? "" : value);
    });
}

std::string appliancePath(const std::string& absolutePath) {
    return applianceRoot() + absolutePath;
}

} // namespace libcommon

namespace local {

bool appliancePathInto(char* path, std::size_t size, std::initializer_list<const char*> parts) {
    path[0] = '\0';
    // A handler may run before or while applianceRoot() reads it for the first time.
    const std::string* known = root.peek();
    const char* start = known != nullptr ? known->c_str() : std::getenv("APPLIANCE_ROOT");
    bool fits = append(path, size, start == nullptr ? "" : start);
    for (const char* part : parts)
        fits = fits && append(path, size, part);
    if (!fits)
        errno = ENAMETOOLONG;
    return fits;
}

} // namespace local
