// The appliance root, for the paths that the supervisor uses itself.
#pragma once

#include <string>

// An absolute `path` below the environment's APPLIANCE_ROOT; any other path unchanged.
std::string underApplianceRoot(const std::string& path);
