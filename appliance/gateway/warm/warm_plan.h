// Which sources are kept: from the parameters, from what was detected, and from what is shown. Pure: no files, no clock.
#pragma once

#include "appliance/gateway/warm/detected_stream.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace gateway {

struct WarmSettings {
    enum class Sources { none, next, all };
    Sources sources = Sources::next;
    std::size_t mostSources = 8;
    std::size_t mostBytes = 64 << 20;

    // "Warm.Sources", "Warm.MaxSources" and "Warm.MaxMemory" (MiB); what is empty or unknown has its default.
    static WarmSettings read(const std::string& sources, int mostSources, int mostMemory);
    bool operator==(const WarmSettings&) const = default;
};

struct WarmCandidate {
    SourceParams section;
    DetectedValues detected;
};

// What the decoder does at present.
struct WarmMoment {
    bool automatic = true;    // "Decoder.SequenceMode"
    int current = -1;         // the source that is shown; -1: none
    std::int64_t shownMs = 0; // since it is shown
};

struct WarmTarget {
    DetectedStream stream;
    std::vector<int> sources; // the indices of those that are this stream, ascending
    bool operator==(const WarmTarget&) const = default;
};

// How long before its turn a source is opened: time for the connection and for a whole group of pictures.
inline constexpr std::int64_t warmLeadMs = 8000;

// The sources that come next, in their order: in the sequence those whose turn begins within warmLeadMs, with the button
// the one that a press brings.
std::vector<int> nextSources(const std::vector<SourceParams>& sections, const WarmMoment& moment);

// The streams to keep, the most important first, at most settings.mostSources. Sources that were not detected in order
// are left out.
std::vector<WarmTarget> planWarm(const WarmSettings& settings, const std::vector<WarmCandidate>& sources,
                                 const WarmMoment& moment);

} // namespace gateway
