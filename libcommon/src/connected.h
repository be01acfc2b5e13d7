// Keeping the configuration that a connect has read.
#pragma once

#include <string_view>

namespace local {

// Called after each successful write of a parameter; keeps the copy when it was "Decoder.Info.Connected" = yes. A
// failure is logged. The main thread of the supervisor.
void noteWrite(int fileId, std::string_view name, std::string_view value);

} // namespace local
