// Generates the pages about the state machine from the table of states and the arrows between them.
//
// docs/state-machine.md is written by hand around generated blocks. The pages in docs/state-machine/, one for each
// group, are generated completely. The meaning of a state is its comment in launcher/states.h.
#pragma once

#include "launcher/state_table.h"
#include "launcher/states.h"

#include <array>
#include <map>
#include <string>

namespace diagram {

// The comment of each state in the header.
using Meanings = std::array<std::string, stateCount>;
Meanings readMeanings(const std::string& statesHeader);

// The file name of a group's page below docs/state-machine/, and the page.
std::string groupFile(StateGroup group);
std::string groupPage(StateGroup group, const Meanings& meanings);

// The overview with its generated blocks updated. A block is between a line `<!-- generated: NAME -->` and a line
// `<!-- end -->`; NAME is groups, events or states. All other lines are kept.
std::string overviewPage(const std::string& current, const Meanings& meanings);

// All files below docs/: name to text. `overview` is the present overview.
std::map<std::string, std::string> allPages(const std::string& overview, const Meanings& meanings);

} // namespace diagram
