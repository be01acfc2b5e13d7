#include "launcher/checkpoint.h"

#include "launcher/machine.h"
#include "process/process_state.h"
#include "recorder/fields.h"
#include "sources/source_cache.h"
#include "sources/source_record.h"

#include <atomic>
#include <cstdint>

namespace {

using recorder::Crossing;
using recorder::Fields;

void exchange(Fields& fields, std::atomic<int>& value) {
    int number = value;
    fields(number);
    value = number;
}

void exchangeProcess(Fields& fields) {
    exchange(fields, process.verbosity);
    exchange(fields, process.mode);
    exchange(fields, process.currentPID);
    exchange(fields, process.pendingPID);
}

void exchangeMachine(Fields& fields) {
    int state = machine.currentState;
    fields(state);
    restoreState(state);
    fields(machine.currentSource)(machine.pendingSource)(machine.sequencePos);
    fields(machine.sequenceTimerId)(machine.sleepTimerId)(machine.lockTimerId);
    fields(machine.sequencePaused)(machine.sequenceStart);
    fields(machine.autoDetectTimeout)(machine.lastAlarmTime);
    fields(machine.alarmText)(machine.shown);
}

void exchangeSequence(Fields& fields) {
    auto count = static_cast<std::int64_t>(machine.sourceSequence.size());
    fields(count);
    if (!fields.restores()) {
        for (int& source : machine.sourceSequence)
            fields(source);
        return;
    }
    machine.sourceSequence.clear();
    for (std::int64_t i = 0; i < count; ++i) {
        int source = 0;
        fields(source);
        machine.sourceSequence.push_back(source);
    }
}

} // namespace

void exchangeCheckpoint() {
    if (!recorder::isCheckpointDue())
        return;
    const bool restores = recorder::replayed() != nullptr && recorder::checkpointsBegun() == 0;
    recorder::checkpointBegins();
    {
        Crossing crossing("machine");
        Fields fields(crossing, restores);
        exchangeProcess(fields);
        exchangeMachine(fields);
        exchangeSequence(fields);
    }
    exchangeSourceCache(restores);
    if (restores)
        machine.sources = readSources();
    const Crossing end("ready");
}
