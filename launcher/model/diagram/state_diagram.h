// The pages about the state machine, made from the table of states and the arrows between them.
//
// docs/state-machine.md is written by hand around generated blocks; docs/state-machine/*.md, a page a group,
// are made whole. What a state means is read from the comments of launcher/states.h.
#pragma once

#include "launcher/state_table.h"
#include "launcher/states.h"

#include <array>
#include <map>
#include <string>

namespace diagram {

// By state, what the header says about it.
using Meanings = std::array<std::string, stateCount>;
Meanings readMeanings(const std::string& statesHeader);

// A group's page, and its file name below docs/state-machine/.
std::string groupFile(StateGroup group);
std::string groupPage(StateGroup group, const Meanings& meanings);

// The overview with its generated blocks made anew. A block stands between a line `<!-- generated: NAME -->`
// and a line `<!-- end -->`; its names are groups, events and states. Everything else is kept.
std::string overviewPage(const std::string& current, const Meanings& meanings);

// All files below docs/: name to text. `overview` is the overview as it is.
std::map<std::string, std::string> allPages(const std::string& overview, const Meanings& meanings);

} // namespace diagram
