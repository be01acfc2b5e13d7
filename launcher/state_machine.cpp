#include "launcher/state_machine.h"

#include "launcher/checkpoint.h"
#include "launcher/state_table.h"
#include "process/process_state.h"

#include <libcommon/log.h>

void setState(int newState) {
    StateNumber& state = machine.currentState;
    if (process.verbosity > 0)
        logmsg(7, "\033[1;34mState transition: %s(%d) -> %s(%d)\033[0m", stateName(state), state.number_,
               stateName(newState), newState);
    recorder::Crossing("state").in(state.number_).in(newState);
    state.number_ = newState;
}

void restoreState(int state) {
    machine.currentState.number_ = state;
}

void startMachine() {
    machine = Machine{};
    machine.configuration.emplace(0, true);
    machine.information.emplace(1, true);
    // One display time in the past, so that the first alarm is shown at once.
    machine.lastAlarmTime =
        recorded::gettimeusec() - configuration("Alarm.DisplayTime").toInt() * std::int64_t{1000000};
    setState(START_UL);
    publishCurrentSource();
}

void runState() {
    const StateHandler handler = stateHandler(machine.currentState);
    if (handler == nullptr) {
        // kept: the state is not repaired, and the machine logs this in every turn
        logmsg(2, "Illegal state");
        return;
    }
    handler();
}

void stateMachine() {
    startMachine();
    for (;;) {
        exchangeCheckpoint();
        runState();
    }
}
