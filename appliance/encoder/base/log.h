// The encoder's log on standard error: one line per call, with the time. Any thread.
#pragma once

#include <string_view>

// Never pass a password.
void logLine(std::string_view text);
