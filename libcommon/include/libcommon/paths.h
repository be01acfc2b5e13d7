// Where the appliance's files are.
//
// The environment variable APPLIANCE_ROOT (default: empty) is put before every absolute path of the
// appliance, so that whole appliances run side by side under different roots. Any thread.
#pragma once

#include <string>

namespace libcommon {

// The appliance root, "" when the variable is not set; read once, at the first call.
const std::string& applianceRoot();

// `absolutePath` below the appliance root.
std::string appliancePath(const std::string& absolutePath);

} // namespace libcommon
