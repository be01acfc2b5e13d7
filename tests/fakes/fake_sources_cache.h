// A source cache for unit tests, linked in place of sources_cache. The test defines each source.
// Call fake::resetSourcesCache() after fake::reset().
//
// Recorded in fake::calls as getSourceEntry(3)  invalidateSource(3)  flushSourceCache(). getSourceKey and
// isSourceDetected are not recorded.
#pragma once

#include "sources/source_cache.h"
#include "tests/fakes/fake_libcommon.h"

#include <functional>
#include <map>
#include <string>

namespace fake {

// One source. Sources with equal keys share their detection, as in the real cache.
struct CachedSource {
    std::string key;          // the result of getSourceKey
    SourceEntry entry;        // the result of getSourceEntry; the test sets its detectedOK
    bool interrupted = false; // getSourceEntry returns null, as after an interrupted detection
    bool detected = false;    // the result of isSourceDetected; getSourceEntry sets it from entry.detectedOK
};

void resetSourcesCache();

// By source index; an index that is not here names no source.
extern std::map<int, CachedSource> cachedSources;

// Adds a source that a detection finds usable. Returns its entry, which the test may change.
SourceEntry& addSource(int index, const std::string& key);

// Replaces the default of getSourceEntry.
extern std::function<SourceEntry*(int index)> onGetSourceEntry;

} // namespace fake
