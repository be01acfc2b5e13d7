// A source cache for unit tests, linked in place of sources_cache: the test says what each source is.
// Call fake::resetSourcesCache() after fake::reset().
//
// Recorded in fake::calls as getSourceEntry(3)  invalidateSource(3)  flushSourceCache(); the two questions
// getSourceKey and isSourceDetected are not recorded.
#pragma once

#include "sources/source_cache.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>
#include <map>
#include <string>

namespace fake {

// One source. Sources with equal keys share their detection, as in the real cache.
struct CachedSource {
    std::string key;          // what getSourceKey gives
    SourceEntry entry;        // what getSourceEntry hands out, its detectedOK as the test set it
    bool interrupted = false; // getSourceEntry gives null, as after an interrupted detection
    bool detected = false;    // what isSourceDetected gives; getSourceEntry sets it from entry.detectedOK
};

void resetSourcesCache();

// By source index; an index that is not here names no source.
extern std::map<int, CachedSource> cachedSources;

// A source that is there and will be found usable: its entry, for the test to change.
SourceEntry& addSource(int index, const std::string& key);

// Replaces the default of getSourceEntry.
extern std::function<SourceEntry*(int index)> onGetSourceEntry;

} // namespace fake
