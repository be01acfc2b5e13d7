#include "appliance/operating/source_steps.h"

#include "appliance/operating/decoder_events.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <libcommon/params.h>

#include <cstddef>

namespace {

std::string countText(std::size_t count) {
    if (count == 0) {
        return "no sources are configured";
    }
    return count == 1 ? "there is only source 0" : "there are sources 0 to " + std::to_string(count - 1);
}

} // namespace

std::vector<ListedSource> listSources() {
    const bool manual = ParamWrapper(0, false)["Decoder.SequenceMode"] == "manual";
    const char* key = manual ? "ManualEnabled" : "AutoEnabled";
    std::vector<ListedSource> listed;
    for (SourceParams source : getSubGroups(0, "Encoder")) {
        listed.push_back({source["Name"], source[key] == "yes" && !source["Address"].empty()});
    }
    return listed;
}

int currentSource() {
    const std::string text = ParamWrapper(1, false)["Decoder.Info.CurrentSource"].toString();
    return text.empty() ? -1 : ParamWrapper(1, false)["Decoder.Info.CurrentSource"].toInt();
}

int stepFrom(int current, int direction, const std::vector<ListedSource>& sources) {
    const int count = static_cast<int>(sources.size());
    int index = current >= 0 && current < count ? current : direction > 0 ? -1 : count;
    for (int tried = 0; tried < count; ++tried) {
        index = (index + direction + count) % count;
        if (sources[static_cast<std::size_t>(index)].inMode) {
            return index;
        }
    }
    return -1;
}

std::string selectNeighbour(int direction) {
    requireRunningAppliance();
    const std::vector<ListedSource> sources = listSources();
    const int index = stepFrom(currentSource(), direction, sources);
    if (index < 0) {
        throw Refused("no source is enabled in the configured mode");
    }
    return selectSource(index, sources[static_cast<std::size_t>(index)].name);
}

std::string selectByNumber(int index) {
    requireRunningAppliance();
    const std::vector<ListedSource> sources = listSources();
    if (index < 0 || static_cast<std::size_t>(index) >= sources.size()) {
        throw Refused("there is no source " + std::to_string(index) + "; " + countText(sources.size()));
    }
    return selectSource(index, sources[static_cast<std::size_t>(index)].name);
}
