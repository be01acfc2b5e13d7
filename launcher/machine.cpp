#include "launcher/machine.h"

#include "process/process_state.h"

#include <libcommon/display.h>

#include <algorithm>
#include <cstdlib>
#include <limits>

// Process-wide state: the machine. Its initial values are in the header. Main thread only.
Machine machine;

recorded::Parameter configuration(const char* name) {
    return (*machine.configuration)[name];
}

recorded::Parameter information(const char* name) {
    return (*machine.information)[name];
}

bool inAutoMode() {
    return getMode() == MODE_AUTO;
}

void setStateByMode(State inAuto, State inManual) {
    setState(inAutoMode() ? inAuto : inManual);
}

void publishCurrentSource() {
    information("Decoder.Info.CurrentSource") = machine.currentSource;
}

void forgetCurrentPlayer() {
    process.currentPID = -1;
    machine.currentSource = -1;
    publishCurrentSource();
}

void endPause() {
    osdClear(1);
    machine.sequencePaused = false;
}

std::string sourceValue(int source, const char* key) {
    if (source < 0 || static_cast<std::size_t>(source) >= machine.sources.size())
        return "";
    const SourceParams record = machine.sources[static_cast<std::size_t>(source)];
    const auto found = record.find(key);
    return found == record.end() ? "" : found->second;
}

std::int64_t displaySeconds(int source) {
    const long seconds = std::strtol(sourceValue(source, "DisplayTime").c_str(), nullptr, 10);
    return std::clamp<long>(seconds, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
}
