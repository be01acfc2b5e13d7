// Launching players.
#pragma once

#include "sources/source_entry.h"

// Starts the player of a detected entry. Returns its pid, or -1 with a log line: null or undetected entry, no free
// port, failed fork. Main thread.
int launchPlayer(SourceEntry* entry);

// Forks and registers the child: the child continues only after the parent has added its pid to the child list and
// created its barrier. Returns the pid in the parent, 0 in the child (all signals at their defaults, none blocked),
// or -1 with errno.
int gaffel();
