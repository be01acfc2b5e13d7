// Launching players.
#pragma once

#include "sources/source_entry.h"

// Starts the player of a detected entry. Its pid, or -1 with a log line (null or undetected entry, no free
// port, failed fork). Main thread.
int launchPlayer(SourceEntry* entry);

// Forks with registration: the child runs on only when the parent has entered its pid in the child list and
// made its barrier. The pid in the parent, 0 in the child (all signals at their defaults, none blocked), -1
// with errno.
int gaffel();
