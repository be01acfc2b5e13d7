// The appliance root, as the supervisor applies it to the paths that it uses itself.
#pragma once

#include <string>

// `path` with the environment's APPLIANCE_ROOT before it when it is absolute, else unchanged.
std::string underApplianceRoot(const std::string& path);
