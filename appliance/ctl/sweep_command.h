// Removing what dead processes of this appliance left behind.
#pragma once

#include <string>

// Sweeps below the appliance root and returns what was removed; Refused while a supervisor owns the root, with its
// pid, and when something could not be removed.
std::string sweepAppliance();
