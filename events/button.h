// The video-select button thread: reads the button file over and over and sends EID_BUTTON for presses and holds.
#pragma once

// Starts the thread. False, with a log line, when it could not be created. When the button file can't be opened
// the thread ends the whole process with status 1.
bool startButtonThread();
