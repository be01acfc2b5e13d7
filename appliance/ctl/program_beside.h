// Programs that decoderctl becomes, so that it needs none of their libraries itself.
#pragma once

#include <string>

// The path of a program in the folder of this one, the one proper.
std::string programBeside(const std::string& name);
