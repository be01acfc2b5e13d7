// Choosing and detecting the pending source.
#pragma once

#include "launcher/states.h"
#include "sources/source_entry.h"

// Makes this the pending source and goes to `next`. The index may name no source; its detection then fails.
void choose(int source, State next);

// Chooses the next higher index of the sequence, or its first source at the end; the pending source need not be in the
// sequence. With an empty sequence playback stops: only a selection by the user had started it.
void chooseNextSource();

// Goes back to the source before the pending one, so that the pause keeps the source that is shown.
void chooseSourceBefore();

// Detects the pending source if it is not known yet, and shows a message meanwhile; blocks for the time of
// the detection. Returns its entry, or null after an interrupted detection and for an index that names no
// source; see isUsable.
SourceEntry* detectPendingSource();
bool isUsable(const SourceEntry* entry);

// Re-reads the resolver configuration, so that the next detection uses a changed answer of the name servers.
void flushResolver();
