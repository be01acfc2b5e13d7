// Muting the decoder's sound.
#pragma once

#include <string>

// Mutes or unmutes the player on the screen; in force within a second. Returns the sentence to print. Throws Refused
// when no decoder runs or the value can't be written.
std::string muteSound(bool muted);

// Whether the sound is muted now.
bool isMuted();
