// What a player's end means: an error code in the status store, a line in the log, a reset of the video
// output.
#pragma once

#include <libcommon/events.h>

// Classifies the EID_CHILD `event` of the player that showed source `sourceIndex`. Decides nothing. Main
// thread; blocks while a reset command runs.
void handleError(int sourceIndex, const Event* event);

// Clears the video output with the appliance's command "blankscreen"; always 0. Main thread; blocks.
int blankscreen();
