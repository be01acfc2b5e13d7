// What the playback machine knows.
//
// One machine a process; it runs on the main thread and everything here is read and written there alone. What
// other threads and the shutdown handler must see - the mode, the verbosity and the pids of the two players -
// stands in process/process_state.h. The machine owns no players and no detected entries: a player is a pid
// whose end comes as EID_CHILD, an entry belongs to the source cache.
#pragma once

#include "launcher/states.h"

#include <libcommon/params.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Changes the state; nothing else does. Logs every call when the verbosity is above 0, also when old and new are
// equal (setMode logs changes only). Defined in state_machine.cpp.
void setState(int newState);

// The number of the current state. Anyone may read it; only setState writes it.
class StateNumber {
public:
    operator int() const { return number_; }

private:
    friend void setState(int newState);
    int number_ = STATE_NULL;
};

// Sources are named by source index, -1 none; times are microseconds of gettimeusec().
struct Machine {
    StateNumber currentState;

    int currentSource = -1;          // shown by the player process.currentPID
    int pendingSource = -1;          // chosen next: being detected, launched or selected
    int sequencePos = -1;            // position of pendingSource in sourceSequence
    std::vector<int> sourceSequence; // usable in the current mode, ascending; rebuilt by CONNECT

    int sequenceTimerId = 0;        // display time of the source shown (automatic mode)
    int sleepTimerId = 0;           // error sleep
    int lockTimerId = 0;            // end of the lock
    bool sequencePaused = false;    // the automatic sequence is paused
    std::int64_t sequenceStart = 0; // when the current choice was first shown; -1 not yet

    std::int64_t autoDetectTimeout = 10000000; // microseconds; read by CONNECT
    std::int64_t lastAlarmTime = 0;            // when the last alarm was shown; starts one display time ago
    std::string alarmText;                     // text of the last alarm taken

    std::string shown; // what the log last said about the screen; empty: nothing is shown

    SubGroups sources; // every configured source as CONNECT read it

    std::optional<ParamWrapper> configuration; // parameter file 0, open for the machine's whole run
    std::optional<ParamWrapper> information;   // parameter file 1, likewise
};

extern Machine machine;

// A parameter of file 0 (configuration) or file 1 (what the decoder tells about itself), to read or to assign
// to.
Param configuration(const char* name);
Param information(const char* name);

bool inAutoMode();

// Goes to the state that does the same thing in the mode we are in.
void setStateByMode(State inAuto, State inManual);

// Writes currentSource to "Decoder.Info.CurrentSource".
void publishCurrentSource();

// The current player is gone: pid and source are cleared together, and nothing is shown any more.
void forgetCurrentPlayer();

// The automatic sequence is not paused any more, and says so.
void endPause();

// A value of a source's record as the last CONNECT read it; "" for a missing key and for an index, such as an
// event may carry, that names no source.
std::string sourceValue(int source, const char* key);

// A source's display time in seconds; 0 without digits, saturating at int's limits.
std::int64_t displaySeconds(int source);
