// The decoder that runs under this appliance root.
#pragma once

#include <string>

// Throws Refused when no supervisor runs under this appliance root, or when this user may not find out.
void requireRunningAppliance();

// "on this machine" or "under ROOT".
std::string applianceText();

// "Decoder.Info.Connected": whether the decoder plays, or tries to.
bool isConnected();

// "Decoder.Connected": whether it should play.
bool isWanted();

// Whether it should play but does not: it is locked or about to connect.
bool isHeldBack();
