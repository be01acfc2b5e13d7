// Turning a PTZ camera to the preset of its source.
#pragma once

// Sends the source's camera to its configured preset position; nothing without "PTZ". One fallback request
// when the known connect mode fails; the entry learns the mode that worked. Main thread; blocks for the
// request. Kept: an entry whose connect mode is not 0 to 3 is tested for ever.
void gotoPtzPreset(int sourceIndex);
