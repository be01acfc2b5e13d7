#include "appliance/commands/source_effect.h"

#include "appliance/commands/connection.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/in_force.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"
#include "appliance/settings/source_sections.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>
#include <libcommon/params.h>

#include <algorithm>
#include <ctime>
#include <vector>

namespace {

constexpr double completionSeconds = 5;
constexpr timespec betweenLooks{0, 20'000'000};

// The section of the source that the decoder shows. Its number counts in the list of the last connect, which may be an
// older one than the file's.
std::string shownSection() {
    const int shown = ParamWrapper(1, false)["Decoder.Info.CurrentSource"].toInt();
    InForce inForce = readInForce();
    const std::vector<SourceParams> configured = getSubGroups(0, "Encoder");
    const std::vector<std::string> sections = sourceSectionNames(readParameterText(configurationFile()));
    if (!isConnected() || !inForce.known || shown < 0 ||
        static_cast<std::size_t>(shown) >= inForce.sources.size() || configured.size() != sections.size())
        return "";
    const std::string name = inForce.sources[static_cast<std::size_t>(shown)]["Name"];
    for (std::size_t i = 0; i < configured.size(); ++i) {
        SourceParams source = configured[i];
        if (source["Name"] == name)
            return sections[i];
    }
    return "";
}

int indexOf(const std::string& section) {
    const std::vector<std::string> sections = sourceSectionNames(readParameterText(configurationFile()));
    const auto found =
        std::ranges::find_if(sections, [&](const std::string& one) { return sameName(one, section); });
    return found == sections.end() ? -1 : static_cast<int>(found - sections.begin());
}

// A decoder without a source that it can show disconnects by itself, but not before it connects next.
std::string disconnectEmpty() {
    try {
        setConnected(false);
    } catch (const Refused& reason) {
        return std::string("not in force yet: ") + reason.what();
    }
    return "in force: no source is left to show, and the decoder has disconnected";
}

// For a decoder that plays, or that has found no source to play. A failure leaves the change in the file, so it is told
// and not thrown.
std::string connectAgain(const std::string& show) {
    try {
        reconnect(indexOf(show));
    } catch (const Refused& reason) {
        return std::string("not in force yet: ") + reason.what();
    }
    return "in force: the decoder has connected again";
}

} // namespace

DecoderBefore lookAtDecoder() {
    DecoderBefore before;
    before.running = libcommon::eventQueueOwner() >= 0;
    if (!before.running)
        return before;
    before.shown = shownSection();
    before.lacksSources = ParamWrapper(0, false)["Decoder.AutoConnect"] == "yes" && !hasUsableSource();
    return before;
}

bool awaitCompletion(const std::string& name) {
    const std::string section = "Encoder." + name + '.';
    const std::int64_t start = gettimeusec();
    for (;;) {
        const ParamWrapper parameters(0, false);
        if (!parameters[(section + "VideoSourceNumber").c_str()].toString().empty() &&
            !parameters[(section + "Compression").c_str()].toString().empty())
            return true;
        if (static_cast<double>(gettimeusec() - start) > completionSeconds * 1e6)
            return false;
        nanosleep(&betweenLooks, nullptr);
    }
}

std::string applyChange(const DecoderBefore& before, const std::string& show, bool apply) {
    if (libcommon::eventQueueOwner() < 0)
        return "in force when the decoder starts";
    const bool connected = isConnected();
    if (!connected && isWanted())
        return "in force when the decoder connects: it is locked or about to connect";
    if (!connected && (!apply || !before.lacksSources || !hasUsableSource()))
        return "in force when the decoder connects";
    if (!apply)
        return "in force at the next connect (decoderctl apply: at once)";
    return hasUsableSource() ? connectAgain(show) : disconnectEmpty();
}
