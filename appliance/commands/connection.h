// Connecting and disconnecting the decoder.
//
// Each command returns the sentence to print and throws Refused when it was refused or failed.
#pragma once

#include <string>

// Throws Refused when the parameter file exists but this user may not read it: its values would look missing.
void requireReadableConfiguration();

inline constexpr double usualWait = 15; // seconds; a lock lasts ten

// Writes "Decoder.Connected", announces it and waits until the decoder has connected or disconnected. Throws
// Refused when that takes longer than `wait` seconds. 0 does not wait.
std::string setConnected(bool connected, double wait = usualWait);

// Whether there is a source that the decoder can show by itself in the configured mode.
bool hasUsableSource();

// Connects the decoder with the configuration as it is now: disconnects it if it is connected, forgets what was detected,
// and connects it. Then it shows the source with this index first; -1: the first one. Throws Refused as setConnected().
void reconnect(int source);

// Brings the whole configuration into force: disconnects, asks every encoder again, connects. Does nothing
// when the configuration has not changed since the last connect.
std::string applyConfiguration();
