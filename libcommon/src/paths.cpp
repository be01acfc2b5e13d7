#include <libcommon/paths.h>

#include <cstdlib>

namespace libcommon {

const std::string& applianceRoot() {
    // Never destroyed: threads still ask for paths while the process exits.
    static const std::string& root = *[] {
        const char* value = std::getenv("APPLIANCE_ROOT");
        return new std::string(value == nullptr ? "" : value);
    }();
    return root;
}

std::string appliancePath(const std::string& absolutePath) {
    return applianceRoot() + absolutePath;
}

} // namespace libcommon
