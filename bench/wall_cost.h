// Measures a wall of several whole decoders on one display.
#pragma once

namespace bench {

struct WallOptions {
    int decoders = 4; // 1 to 9
    int seconds = 20; // length of the measurement
    double rate = 24; // least frames per second of each decoder, in its store and on the display
    bool assertLimits = false;
};

// Runs decoders with 720x576 pictures from two encoders, and a wall that shows them. Prints the frames per second of
// each decoder, and the CPU time of players, wall, supervisors and encoders. Returns the program's exit status: 1 when
// a limit is passed with `assertLimits`, or when a decoder shows nothing.
int measureWall(const WallOptions& options);

} // namespace bench
