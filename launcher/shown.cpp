#include "launcher/shown.h"

#include "launcher/machine.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>

namespace {

// The name of the stream kind, as the last detection published it.
std::string kindOf(int source) {
    const std::string kind = source < 0 ? "" : recorded::status(source, "VideoSourceType");
    return kind.empty() ? "kind unknown" : kind;
}

std::string describe(int source) {
    return "source " + std::to_string(source) + ", " + sourceValue(source, "Name") + " (" +
           sourceValue(source, "Address") + "), " + kindOf(source);
}

} // namespace

void logShownSource() {
    const std::string text = describe(machine.currentSource);
    if (text == machine.shown)
        return;
    machine.shown = text;
    logmsg(6, "Screen: %s", text.c_str());
}

void logNothingShown(const std::string& reason) {
    if (machine.shown.empty())
        return;
    machine.shown.clear();
    logmsg(6, "Screen: nothing, %s", reason.c_str());
}
