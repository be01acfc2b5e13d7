// `decoderctl report`: the archive for a bug report.
#pragma once

#include "appliance/ctl/ctl_command_line.h"

// Becomes the program decoder-report. Does not return; throws Refused when it can't be started.
[[noreturn]] void becomeReport(const Request& request);
