// The pending source: choosing what comes next, and making sure that it is known.
#pragma once

#include "launcher/states.h"
#include "sources/source_entry.h"

// The user or an alarm wants this source; `next` starts it. The index may name no source: its detection will
// fail.
void choose(int source, State next);

// The source after the pending one: the next higher index of the sequence, or its first - wherever the
// pending one stands. With an empty sequence playback stops, for only the user's selection was keeping it.
void chooseNextSource();

// Steps back to the source before the pending one, so that a pause stays on what is being shown.
void chooseSourceBefore();

// Detects the pending source where it is not known, telling the user; blocks for as long as that takes. Its
// entry, or null for an interrupted detection and an unknown source; look at isUsable.
SourceEntry* detectPendingSource();
bool isUsable(const SourceEntry* entry);

// Makes the next detection see a changed answer of the name servers.
void flushResolver();
