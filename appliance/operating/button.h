// The decoder's video-select button, pressed by a program.
#pragma once

#include <string>

// Presses the button file. A held press reads as '2', a short one as '1'. Returns the sentence to print. Throws
// Refused when no decoder runs or the file can't be written.
std::string pressButton(bool hold);
