// The sources that are enabled in the configured mode.
#pragma once

#include <libcommon/params.h>

#include <cstdint>
#include <vector>

struct SourceList {
    SubGroups configured;               // every source; the position is the source index
    std::vector<int> enabled;           // indices usable in the mode, ascending
    std::int64_t autoDetectTimeout = 0; // microseconds
};

// Reads "Decoder.SequenceMode" and sets the mode; an unknown text is logged and the mode is kept. Then reads the source
// list again. Main thread.
SourceList buildSourceList();
