// The decoder's mute: "Sound.Info.Muted", which every player obeys while it plays.
#pragma once

#include <string>

bool isMuted();

// Mutes or unmutes. Returns the sentence to print. Throws Refused when the value can't be written.
std::string setMuted(bool muted);
