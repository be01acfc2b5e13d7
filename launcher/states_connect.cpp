// From the start or a selection to a detected source: START_UL, CONNECT, REQUEST_ENCODER_TYPE, SEND_ONLY_PTZ,
// SELECT_SOURCE_ID, FLUSH_CACHE_CONNECTED.

#include "launcher/display.h"
#include "launcher/handlers.h"
#include "launcher/pending_source.h"
#include "launcher/shown.h"
#include "launcher/waiting.h"
#include "player/ptz.h"
#include "process/process_state.h"
#include "recorder/recorded.h"
#include "sources/source_cache.h"
#include "sources/source_list.h"

#include <libcommon/display.h>
#include <libcommon/log.h>

#include <utility>

namespace {

void readSources() {
    SourceList list = buildSourceList();
    machine.sources = std::move(list.configured);
    machine.autoDetectTimeout = list.autoDetectTimeout;
    machine.sourceSequence = std::move(list.enabled);
}

void forgetPlayersAndSources() {
    machine.pendingSource = -1;
    process.currentPID = -1;
    machine.currentSource = -1;
    publishCurrentSource();
    process.pendingPID = -1;
    machine.sequenceStart = -1;
}

// The event that connected a disconnected machine comes first. If an alarm and a select are queued, the alarm's text is
// shown and the source is that of the select.
void takeQueuedChoice() {
    if (!inAutoMode()) {
        if (const auto alarm = takeIfQueued(EID_ALARM)) {
            takeAlarm(*alarm);
            showAlarm();
        }
    }
    if (const auto select = takeIfQueued(EID_SELECT))
        machine.pendingSource = select->value1;
}

void giveUpConnecting() {
    osdPrintf(0, 0, "No sources available in selected sequence mode");
    logmsg(3, "No sources available in this mode.");
    recorded::sleepSeconds(2);
    configuration("Decoder.Connected") = "no";
    flushEventQueue();
    setState(DISCONNECTED);
}

// Before the launch: a queued cache flush is executed, and a short press pauses the sequence on the source that is
// shown. True when the state has changed.
bool leftForQueuedEvent() {
    const auto event = takeIfQueued(EID_FLUSHCACHE, EID_BUTTON);
    if (!event)
        return false;
    if (event->id == EID_FLUSHCACHE) {
        setState(FLUSH_CACHE_CONNECTED);
        return true;
    }
    if (inAutoMode() && process.currentPID != -1 && isShortPress(*event)) {
        chooseSourceBefore();
        osdClear(0);
        setState(AUTO_PAUSE);
        return true;
    }
    pushEvent(*event); // for a later state
    return false;
}

// Whether the pending source is the input that the current player shows. Keys are compared byte for byte, so two
// indices that name no source, both with the empty key, are equal. The one exception is index -1: it means "none", and
// keeping the player for it would leave the player without a source.
bool isShownInput() {
    return machine.pendingSource != -1 &&
           getSourceKey(machine.pendingSource) == getSourceKey(machine.currentSource);
}

} // namespace

void states::startUl() {
    flushEventQueue();
    const bool connectAtStart = configuration("Decoder.AutoConnect") == "yes";
    configuration("Decoder.Connected") = connectAtStart ? "yes" : "no";
    setState(connectAtStart ? CONNECT : DISCONNECTED);
}

void states::connect() {
    machine.sequencePaused = false;
    readSources();
    information("Decoder.Info.Connected") = "yes";
    forgetPlayersAndSources();
    takeQueuedChoice();
    if (machine.pendingSource == -1) {
        if (machine.sourceSequence.empty())
            return giveUpConnecting();
        machine.sequencePos = 0;
        machine.pendingSource = machine.sourceSequence.front();
    }
    setState(REQUEST_ENCODER_TYPE);
}

void states::requestEncoderType() {
    const SourceEntry* entry = detectPendingSource();
    if (leftForQueuedEvent())
        return;
    if (!isUsable(entry)) {
        flushResolver();
        return setState(REQUEST_ENCODER_FAILED);
    }
    setState(process.currentPID == -1 ? LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING : LAUNCH_PENDING_PLAYER);
}

void states::sendOnlyPtz() {
    gotoPtzPreset(machine.pendingSource);
    machine.currentSource = machine.pendingSource;
    publishCurrentSource();
    logShownSource();
    setStateByMode(AUTO_START_TIMER, MANUAL_WAIT_FOR_NEW_SELECTION);
}

void states::selectSourceId() {
    if (inAutoMode())
        machine.sequenceStart = -1;
    if (takeIfQueued(EID_FLUSHCACHE))
        return setState(FLUSH_CACHE_CONNECTED);
    if (process.currentPID == -1 || !isShownInput())
        return setState(REQUEST_ENCODER_TYPE);
    getSourceEntry(machine.pendingSource); // refreshes the status values of this source
    setState(SEND_ONLY_PTZ);
}

void states::flushCacheConnected() {
    flushSourceCache();
    setState(REQUEST_ENCODER_TYPE);
}
