#include "appliance/reporting/in_force.h"

#include "appliance/settings/known_parameters.h"

#include <libcommon/connected.h>
#include <libcommon/events.h>

namespace {

std::string valueOf(const SourceParams& source, std::string_view key) {
    const auto found = source.find(istring(key.data(), key.size()));
    return found == source.end() ? "" : found->second;
}

} // namespace

SourceDifference InForce::difference(std::size_t index, const SourceParams& configured) const {
    SourceDifference result;
    if (!known || unchanged) {
        return result;
    }
    result.isNew = index >= sources.size();
    for (const KnownParameter& parameter : sourceParameters()) {
        const bool readAtConnect = (parameter.readings & AtConnect) != 0;
        if (!result.isNew && readAtConnect &&
            valueOf(sources[index], parameter.name) != valueOf(configured, parameter.name)) {
            result.changed.emplace_back(parameter.name);
        }
    }
    return result;
}

InForce readInForce() {
    libcommon::ConnectedConfiguration connected = libcommon::connectedConfiguration();
    InForce result;
    result.known = connected.known && connected.supervisor == libcommon::eventQueueOwner() &&
                   ParamWrapper(1, false)["Decoder.Info.Connected"] == "yes";
    if (result.known) {
        result.unchanged = connected.unchanged;
        result.sequenceMode = std::move(connected.sequenceMode);
        result.sources = std::move(connected.sources);
    }
    return result;
}

std::string differenceText(const SourceDifference& difference) {
    if (difference.isNew) {
        return "new";
    }
    std::string text;
    for (const std::string& key : difference.changed) {
        text += (text.empty() ? "changed: " : ", ") + key;
    }
    return text;
}
