// The encoder's log: one line a call on standard error, with the time. Safe on any thread.
#pragma once

#include <string_view>

// For people who look for a mistake; never a password.
void logLine(std::string_view text);
