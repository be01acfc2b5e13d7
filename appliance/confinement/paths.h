// The files and TCP ports of a confined process.
#pragma once

#include "appliance/confinement/confinement.h"

namespace confinement {

// Sets `files` and `ports` of the result. Needs "no new privileges".
void confinePaths(const Needs& needs, Result& result);

} // namespace confinement
