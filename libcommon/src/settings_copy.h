// Keeping the copies of settings up to date.
#pragma once

namespace local {

// Called in the turn to write that parameter file, after each change: renews its copy if there are copies. A failure is
// logged.
void renewSettingsCopy(int fileId);

} // namespace local
