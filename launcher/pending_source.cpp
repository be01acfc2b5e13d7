#include "launcher/pending_source.h"

#include "launcher/display.h"
#include "launcher/machine.h"
#include "process/process_state.h"
#include "process/trace_output.h"
#include "sources/source_cache.h"

#include <libcommon/display.h>
#include <libcommon/log.h>

#include <algorithm>
#include <resolv.h>

namespace {

bool isInSequence(int position) {
    return position >= 0 && static_cast<std::size_t>(position) < machine.sourceSequence.size();
}

// In automatic mode the message must not cover a running picture. In manual mode the user waits for this source.
void announceDetection() {
    if (inAutoMode())
        osdClear(0);
    if (isSourceDetected(machine.pendingSource))
        return;
    if (inAutoMode()) {
        if (process.currentPID == -1)
            printDetecting();
    } else {
        printTrace("Source name: '%s'\n", sourceValue(machine.pendingSource, "Name").c_str());
        printDetecting();
    }
}

} // namespace

void choose(int source, State next) {
    machine.pendingSource = source;
    setState(next);
}

void chooseNextSource() {
    const std::vector<int>& sequence = machine.sourceSequence;
    machine.sequencePos = 0;
    if (sequence.empty()) {
        logmsg(7, "No sources available in this mode but a source is playing because of user select.");
        configuration("Decoder.Connected") = "no";
        setState(STOP_PLAYING);
        return;
    }
    const auto next = std::upper_bound(sequence.begin(), sequence.end(), machine.pendingSource);
    if (next != sequence.end())
        machine.sequencePos = static_cast<int>(next - sequence.begin());
    choose(sequence[static_cast<std::size_t>(machine.sequencePos)], SELECT_SOURCE_ID);
}

void chooseSourceBefore() {
    const std::vector<int>& sequence = machine.sourceSequence;
    const auto found = std::find(sequence.begin(), sequence.end(), machine.pendingSource);
    if (found != sequence.end()) {
        const auto after = found == sequence.begin() ? sequence.end() : found;
        machine.sequencePos = static_cast<int>(after - sequence.begin()) - 1;
    }
    // The first source of all may be a selection outside the sequence. There is no position to go back to then, and the
    // current source is the one that is shown.
    machine.pendingSource = isInSequence(machine.sequencePos)
                                ? sequence[static_cast<std::size_t>(machine.sequencePos)]
                                : machine.currentSource;
}

SourceEntry* detectPendingSource() {
    if (process.currentPID == -1)
        showDetectingLed();
    announceDetection();
    SourceEntry* entry = getSourceEntry(machine.pendingSource);
    osdClear(0);
    return entry;
}

bool isUsable(const SourceEntry* entry) {
    return entry != nullptr && entry->detectedOK;
}

void flushResolver() {
    logmsg(7, "Flushing DNS-cache");
    __res_init();
}
