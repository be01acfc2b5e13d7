// Turns a PTZ camera to the preset of its source.
#pragma once

// Turns the source's camera to its configured preset; does nothing without "PTZ". When the known connect mode fails,
// one request in automatic mode follows and the entry stores the mode that worked. Main thread; blocks for the
// requests. Kept: an entry whose connect mode is not 0 to 3 is tested forever.
void gotoPtzPreset(int sourceIndex);
