// The source cache: one detected entry per distinct encoder input.
//
// The key is the source key, so sources that are the same input of the same encoder share one detection. The cache owns
// its entries. Each operation reads the source list again and takes a source index; an index that names no source does
// nothing. Main thread only: no lock.
#pragma once

#include "sources/source_entry.h"

#include <string>

// The source's key; "" when the index names no source.
std::string getSourceKey(int index);

// Whether the source's key is cached with a usable entry.
bool isSourceDetected(int index);

// Returns the entry to play the source from. Detects an unknown encoder first, which may take seconds. Null for an
// index that names no source and after an interrupted detection; otherwise detectedOK says whether the entry is
// usable. The pointer is valid until the next invalidateSource of the same key or flushSourceCache.
SourceEntry* getSourceEntry(int index);

// Forgets what is known about the source: the next getSourceEntry detects it again.
void invalidateSource(int index);

// Forgets everything and brings the encoder information in line with the parameter file.
void flushSourceCache();

// The cache's part of a checkpoint (launcher/checkpoint.h). `restores`: what is on the tape becomes the cache.
void exchangeSourceCache(bool restores);
