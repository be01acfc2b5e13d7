#include "appliance/screen/appliance_view.h"

#include <libcommon/connected.h>
#include <libcommon/display.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

namespace screen {
namespace {

std::string nameOf(const SourceParams& source) {
    const auto found = source.find("Name");
    return found == source.end() ? "" : found->second;
}

template<class Sources>
std::vector<std::string> namesOf(const Sources& sources) {
    std::vector<std::string> names;
    names.reserve(sources.size());
    for (const SourceParams& source : sources)
        names.push_back(nameOf(source));
    return names;
}

} // namespace

ScreenText ApplianceView::texts() const {
    ScreenText texts;
    for (int line = 0; line < libcommon::osdLines; ++line)
        texts[static_cast<std::size_t>(line)] = libcommon::osdText(line);
    return texts;
}

std::int64_t ApplianceView::blankTime() const {
    return libcommon::osdBlankTime();
}

std::string ApplianceView::parameter(const char* name) const {
    return ParamWrapper(0, false)[name].toString();
}

std::string ApplianceView::information(const char* name) const {
    return ParamWrapper(1, false)[name].toString();
}

std::string ApplianceView::status(int source, const char* key) const {
    return source < 0 ? "" : ::status(source, key);
}

std::vector<std::string> ApplianceView::sourceNames() const {
    const libcommon::ConnectedConfiguration connected = libcommon::connectedConfiguration();
    return connected.known ? namesOf(connected.sources) : namesOf(getSubGroups(0, "Encoder"));
}

} // namespace screen
