// Classifies a player's exit: an error code in the status store, a log line and, for one code, a reset of
// the video output.
#pragma once

#include <libcommon/events.h>

// Classifies the EID_CHILD `event` of the player that showed source `sourceIndex`. Does not decide what happens next.
// Main thread; blocks while a reset command runs.
void handleError(int sourceIndex, const Event* event);

// Clears the video output with the appliance's command "blankscreen". Always returns 0. Main thread; blocks.
int blankscreen();
