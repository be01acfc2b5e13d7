// The tile process: renders what its appliance shows besides the frame, and carries out the keys of its tile.
#pragma once

namespace screen {

// Serves the wall at the other end of `socket` until that closes it. Returns the program's exit status, 0. Called once,
// on the main thread.
int runTile(int socket);

} // namespace screen
