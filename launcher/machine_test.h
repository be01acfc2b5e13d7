// The fixture of the state machine's tests: a started machine with eight sources, in automatic mode, over fakes of
// everything that it calls.
#pragma once

#include "launcher/state_machine.h"
#include "launcher/state_table.h"
#include "process/process_state.h"
#include "tests/fakes/fake_events.h"
#include "tests/fakes/fake_launcher.h"
#include "tests/fakes/fake_player.h"
#include "tests/fakes/fake_sources_cache.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using Calls = std::vector<std::string>;
using Log = std::vector<fake::LogLine>;

// Resets all fakes and process values to those of a new process.
void resetWorld();

// A source that is enabled in both modes: "Name" is "Cam 3", "Address" is "10.0.0.3", "DisplayTime" is "10".
SourceParams makeSource(int index);

inline constexpr int currentPlayer = 100; // pids
inline constexpr int pendingPlayer = 200;

// Events.
Event shortPress();
Event longPress();
Event alarm(int source, const char* text = "");
Event childExit(int pid, int status = 0);

struct MachineTest : testing::Test {
    MachineTest();

    // Puts the machine into a state as after CONNECT: sources read, sequence 0, 1, 2. Clears calls and log.
    void enter(State state);

    // A player shows the source; another one is being started for it.
    void playing(int source);
    void launching(int source);

    // One turn with these events queued. Afterwards `calls` and `log` are those of this turn.
    void turn(const std::vector<Event>& events = {});

    // One turn that ends in a wait for another event.
    void turnThatWaits(const std::vector<Event>& events = {});

    Calls calls;
    Log log;
};

// The name of the current state.
std::string state();
std::vector<int> queuedIds();
