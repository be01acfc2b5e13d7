// What a player still may do from here on. docs/security.md has the list, and what a player that was taken over can't do.
#pragma once

#include "appliance/players/showing/player_options.h"

namespace player {

// Gives up all rights that this player does not need, unless "Player.Confined" is "no". What the kernel can't take away is
// logged. Reads the parameters from copies from then on. Called once, before other threads exist.
void confineSelf(const PlayerOptions& options);

} // namespace player
