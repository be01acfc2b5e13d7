#include "appliance/gateway/warm/warm_plan.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>

namespace gateway {
namespace {

std::string valueOf(const SourceParams& section, const char* key) {
    const auto found = section.find(key);
    return found == section.end() ? "" : found->second;
}

bool isEnabled(const SourceParams& section, bool automatic) {
    return valueOf(section, automatic ? "AutoEnabled" : "ManualEnabled") == "yes" &&
           !valueOf(section, "Address").empty();
}

std::int64_t displayMs(const SourceParams& section) {
    constexpr long longest = 86400;
    return 1000 *
           std::clamp<long>(std::strtol(valueOf(section, "DisplayTime").c_str(), nullptr, 10), 1, longest);
}

// The enabled sources after `current`, once around.
std::vector<int> orderAfter(const std::vector<SourceParams>& sections, const WarmMoment& moment) {
    std::vector<int> order;
    const int count = static_cast<int>(sections.size());
    for (int step = 1; step < count; ++step) {
        const int index = (moment.current + step) % count;
        if (isEnabled(sections[static_cast<std::size_t>(index)], moment.automatic))
            order.push_back(index);
    }
    return order;
}

// With addresses of 32 bits, the largest number of bytes is a little less than 4096 MiB.
std::size_t bytesOf(int mebibytes) {
    constexpr std::size_t most = std::numeric_limits<std::size_t>::max();
    const auto wanted = static_cast<std::size_t>(mebibytes);
    return wanted > most >> 20 ? most : wanted << 20;
}

class Planner {
public:
    Planner(const WarmSettings& settings, const std::vector<WarmCandidate>& sources)
        : settings_(settings), sources_(sources) {
        for (const WarmCandidate& source : sources)
            if (!source.detected.trace.empty() && source.detected.errorCode == "0")
                traces_[inputOf(source.section)] = source.detected.trace;
    }

    void add(int index) {
        const WarmCandidate& source = sources_[static_cast<std::size_t>(index)];
        if (valueOf(source.section, "Warm") == "no")
            return;
        const auto stream = streamOf(source);
        if (!stream)
            return;
        const auto same = std::ranges::find(targets_, *stream, &WarmTarget::stream);
        if (same != targets_.end()) {
            if (std::ranges::find(same->sources, index) == same->sources.end())
                same->sources.insert(std::ranges::upper_bound(same->sources, index), index);
        } else if (targets_.size() < settings_.mostSources) {
            targets_.push_back({*stream, {index}});
        }
    }

    std::vector<WarmTarget> targets() { return std::move(targets_); }

private:
    // The source whose detection it was has the trace; it may have been overwritten by a later, failed one.
    std::optional<DetectedStream> streamOf(const WarmCandidate& source) const {
        if (const auto stream = detectedStream(source.section, source.detected))
            return stream;
        const auto shared = traces_.find(inputOf(source.section));
        if (shared == traces_.end())
            return std::nullopt;
        DetectedValues values = source.detected;
        values.trace = shared->second;
        return detectedStream(source.section, values);
    }

    const WarmSettings& settings_;
    const std::vector<WarmCandidate>& sources_;
    std::map<std::string, std::string> traces_; // by the sources' inputs
    std::vector<WarmTarget> targets_;
};

} // namespace

WarmSettings WarmSettings::read(const std::string& sources, int mostSources, int mostMemory) {
    WarmSettings settings;
    settings.sources = sources == "none" ? Sources::none : sources == "all" ? Sources::all : Sources::next;
    if (mostSources > 0)
        settings.mostSources = static_cast<std::size_t>(mostSources);
    if (mostMemory > 0)
        settings.mostBytes = bytesOf(mostMemory);
    return settings;
}

std::vector<int> nextSources(const std::vector<SourceParams>& sections, const WarmMoment& moment) {
    const int count = static_cast<int>(sections.size());
    if (moment.current < 0 || moment.current >= count)
        return {};
    std::vector<int> order = orderAfter(sections, moment);
    if (!moment.automatic) {
        order.resize(std::min<std::size_t>(order.size(), 1));
        return order;
    }
    std::vector<int> next;
    std::int64_t untilTurn = displayMs(sections[static_cast<std::size_t>(moment.current)]) - moment.shownMs;
    for (const int index : order) {
        if (untilTurn > warmLeadMs)
            break;
        next.push_back(index);
        untilTurn =
            std::max<std::int64_t>(untilTurn, 0) + displayMs(sections[static_cast<std::size_t>(index)]);
    }
    return next;
}

std::vector<WarmTarget> planWarm(const WarmSettings& settings, const std::vector<WarmCandidate>& sources,
                                 const WarmMoment& moment) {
    std::vector<SourceParams> sections;
    for (const WarmCandidate& source : sources)
        sections.push_back(source.section);
    Planner planner(settings, sources);
    const int count = static_cast<int>(sources.size());
    for (int index = 0; index < count; ++index)
        if (valueOf(sections[static_cast<std::size_t>(index)], "Warm") == "yes")
            planner.add(index);
    if (settings.sources != WarmSettings::Sources::none)
        for (const int index : nextSources(sections, moment))
            planner.add(index);
    for (int index = 0; settings.sources == WarmSettings::Sources::all && index < count; ++index)
        if (isEnabled(sections[static_cast<std::size_t>(index)], moment.automatic))
            planner.add(index);
    return planner.targets();
}

} // namespace gateway
