// The variables of the playback machine.
//
// There is one machine in a process. Only the main thread reads and writes these variables. The values that other
// threads and the shutdown handler need (mode, verbosity, pids of the two players) are in process/process_state.h.
// The machine owns neither players nor entries: a player is a pid whose exit comes as EID_CHILD, an entry belongs to
// the source cache.
#pragma once

#include "launcher/states.h"
#include "recorder/recorded.h"

#include <libcommon/params.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Changes the state; nothing else does. Logs every call when the verbosity is above 0, also when old and new are
// equal (setMode logs changes only). Defined in state_machine.cpp.
void setState(int newState);

// Takes a state over from a recording: neither logged nor recorded. For checkpoint.cpp only.
void restoreState(int state);

// The number of the current state. Anyone may read it; only setState writes it.
class StateNumber {
public:
    operator int() const { return number_; }

private:
    friend void setState(int newState);
    friend void restoreState(int state);
    int number_ = STATE_NULL;
};

// Sources are source indices, -1 for none; times are microseconds of gettimeusec().
struct Machine {
    StateNumber currentState;

    int currentSource = -1;          // shown by the player process.currentPID
    int pendingSource = -1;          // the next one: being selected, detected or launched
    int sequencePos = -1;            // position of pendingSource in sourceSequence
    std::vector<int> sourceSequence; // usable in the current mode, ascending; rebuilt by CONNECT

    int sequenceTimerId = 0;        // display time of the source shown (automatic mode)
    int sleepTimerId = 0;           // error sleep
    int lockTimerId = 0;            // end of the lock
    bool sequencePaused = false;    // the automatic sequence is paused
    std::int64_t sequenceStart = 0; // when the current choice was first shown; -1 not yet

    std::int64_t autoDetectTimeout = 10000000; // microseconds; read by CONNECT
    std::int64_t lastAlarmTime = 0; // when the last alarm was shown; starts one display time in the past
    std::string alarmText;          // text of the last alarm taken

    std::string shown; // the source in the last log line about the screen; empty: nothing is shown

    SubGroups sources; // all configured sources, as CONNECT read them

    std::optional<recorded::Parameters> configuration; // parameter file 0, open while the machine runs
    std::optional<recorded::Parameters> information;   // parameter file 1, likewise
};

extern Machine machine;

// A parameter of file 0 (configuration) or file 1 (the decoder's own status), to read or to assign.
recorded::Parameter configuration(const char* name);
recorded::Parameter information(const char* name);

bool inAutoMode();

// Goes to one of two states, depending on the mode.
void setStateByMode(State inAuto, State inManual);

// Writes currentSource to "Decoder.Info.CurrentSource".
void publishCurrentSource();

// Clears the pid and the source of the current player together, and publishes that no source is shown.
void forgetCurrentPlayer();

// Ends the pause of the automatic sequence and clears its on-screen message.
void endPause();

// A value of a source's record, as the last CONNECT read it; "" for a missing key and for an index that names no source
// (an event may carry such an index).
std::string sourceValue(int source, const char* key);

// A source's display time in seconds; 0 without digits, saturating at int's limits.
std::int64_t displaySeconds(int source);
