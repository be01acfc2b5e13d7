// The log's answer to "what does the screen show?": one line at level 6 each time that changes.
//
//   Screen: source 3, Gate (10.0.0.3:80), mjpeg
//   Screen: nothing, the player exited while it was playing
#pragma once

#include <string>

// A player shows the current source. Does nothing when the last line said the same.
void logShownSource();

// The picture has ended, for this reason. Does nothing when no picture was shown.
void logNothingShown(const std::string& reason);
