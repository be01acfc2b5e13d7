// Whether a decoder runs here, and connecting and disconnecting it.
//
// Each command returns the sentence to print and throws Refused when it was refused or failed.
#pragma once

#include <string>

// Throws Refused when no supervisor runs under this appliance root, or when this user may not find out.
void requireRunningAppliance();

// Throws Refused when the parameter file exists but this user may not read it: its values would look missing.
void requireReadableConfiguration();

// "on this machine" or "under ROOT".
std::string applianceText();

// "Decoder.Info.Connected": whether the decoder plays, or tries to.
bool isConnected();

inline constexpr double usualWait = 15; // seconds; a lock lasts ten

// Writes "Decoder.Connected", announces it and waits until the decoder has connected or disconnected. Throws
// Refused when that takes longer than `wait` seconds. 0 does not wait.
std::string setConnected(bool connected, double wait = usualWait);

// Brings the whole configuration into force: disconnects, asks every encoder again, connects. Does nothing
// when the configuration has not changed since the last connect.
std::string applyConfiguration();
