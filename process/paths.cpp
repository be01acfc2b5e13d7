#include "process/paths.h"

#include <cstdlib>

std::string underApplianceRoot(const std::string& path) {
    const char* root = std::getenv("APPLIANCE_ROOT");
    if (root == nullptr || path.empty() || path.front() != '/')
        return path;
    return root + path;
}
