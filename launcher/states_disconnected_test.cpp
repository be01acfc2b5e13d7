#include "launcher/machine_test.h"

namespace {

struct Disconnected : MachineTest {
    Disconnected() {
        enter(DISCONNECTED);
        machine.pendingSource = -1;
        fake::setParam(0, "Decoder.Connected", "no");
    }
};

struct Locked : MachineTest {
    Locked() {
        machine.lockTimerId = 70000;
        enter(LOCKED);
    }
};

using StopPlaying = MachineTest;

const Calls redrawn{"osdClear(0)",    "osdBlank()",       "param(1) Decoder.Info.Connected=no",
                    "set_led(2,2,2)", "osdClear(1)",      "osdClear(2)",
                    "blankscreen()",  "peekNextEvent(12)"};
const char* const waitCall = "getNextEvent(11,4,9,8,10,12)";

Calls afterWait(const Calls& more) {
    Calls all = redrawn;
    all.emplace_back(waitCall);
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

const Calls startOfALock{"setTimeout(10000)", "semaphoreIncrease(2003)"};

} // namespace

TEST_F(Disconnected, ShowsItsAddressWhenItIsConfigured) {
    fake::setParam(0, "Decoder.ShowDisconnectedMessage", "yes");
    fake::setParam(0, "Network.eth0.IPAddress", "192.168.0.90");
    machine.sequencePaused = true;
    turnThatWaits();
    EXPECT_EQ(calls.front(), "osdPrintf(0,0) Disconnected. My IP address: 192.168.0.90");
    EXPECT_EQ(Calls(calls.begin() + 1, calls.end() - 1), Calls(redrawn.begin() + 1, redrawn.end()));
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(Disconnected, ShowsNothingOtherwise) {
    for (const char* text : {"no", "", "YES"}) {
        fake::setParam(0, "Decoder.ShowDisconnectedMessage", text);
        turnThatWaits();
        EXPECT_EQ(calls, afterWait({}));
    }
}

TEST_F(Disconnected, AShortPressConnects) {
    fake::deliver(fake::event(EID_RECONNECT));
    turn({shortPress()});
    EXPECT_EQ(state(), "CONNECT");
    EXPECT_EQ(calls, afterWait({"param(0) Decoder.Connected=yes", "flushEventQueue()"}));
    EXPECT_TRUE(fake::queue.empty());
}

TEST_F(Disconnected, ALongPressDoesNotConnect) {
    turn({longPress()});
    EXPECT_EQ(state(), "DISCONNECTED");
    EXPECT_EQ(calls, afterWait({}));
}

TEST_F(Disconnected, ASelectConnectsAndIsLeftForTheNextState) {
    turn({fake::event(EID_SELECT, 4), fake::event(EID_SELECT, 5)});
    EXPECT_EQ(state(), "CONNECT");
    EXPECT_EQ(calls, afterWait({"param(0) Decoder.Connected=yes", "flushEventQueue()", "pushEvent(11,4,0)"}));
    turn();
    EXPECT_EQ(machine.pendingSource, 4);
}

TEST_F(Disconnected, ToldToConnectItConnects) {
    fake::setParam(0, "Decoder.Connected", "yes");
    turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
    EXPECT_EQ(state(), "CONNECT");
    EXPECT_EQ(calls, afterWait({"flushEventQueue()"}));
}

TEST_F(Disconnected, AnyOtherPropertyChangeIsDropped) {
    for (const char* text : {"no", "", "Yes"}) {
        fake::setParam(0, "Decoder.Connected", text);
        turn({fake::event(EID_CONNECTPROPERTYCHANGED)});
        EXPECT_EQ(state(), "DISCONNECTED");
        EXPECT_EQ(calls, afterWait({}));
    }
}

TEST_F(Disconnected, InManualModeAnAlarmConnectsAndItsSourceIsShownFirst) {
    fake::setParam(0, "Decoder.SequenceMode", "manual");
    turn({alarm(6, "smoke")});
    EXPECT_EQ(state(), "CONNECT");
    EXPECT_EQ(calls, afterWait({"param(0) Decoder.Connected=yes", "flushEventQueue()", "pushEvent(8,6,0)"}));
    turn();
    EXPECT_EQ(state(), "REQUEST_ENCODER_TYPE");
    EXPECT_EQ(machine.pendingSource, 6);
    EXPECT_EQ(machine.alarmText, "smoke");
}

TEST_F(Disconnected, InAutomaticModeAnAlarmIsDropped) {
    for (const char* mode : {"auto", "", "Manual"}) {
        fake::setParam(0, "Decoder.SequenceMode", mode);
        turn({alarm(6)});
        EXPECT_EQ(state(), "DISCONNECTED");
        EXPECT_EQ(calls, afterWait({}));
        EXPECT_TRUE(fake::queue.empty());
    }
}

TEST_F(Disconnected, ACacheFlushReturnsToDisconnected) {
    turn({fake::event(EID_FLUSHCACHE)});
    EXPECT_EQ(state(), "FLUSH_CACHE");
    EXPECT_EQ(calls, afterWait({}));
    turn();
    EXPECT_EQ(state(), "DISCONNECTED");
    EXPECT_EQ(calls, (Calls{"flushSourceCache()"}));
}

TEST_F(Disconnected, AQueuedLockIsTakenBeforeEarlierEvents) {
    turn({fake::event(EID_SELECT, 1), fake::event(EID_LOCK)});
    EXPECT_EQ(state(), "LOCKED");
    Calls expected = redrawn;
    expected.insert(expected.end(), startOfALock.begin(), startOfALock.end());
    EXPECT_EQ(calls, expected);
    EXPECT_EQ(machine.lockTimerId, 65536);
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_SELECT}));
}

TEST_F(Disconnected, ALockThatComesLaterIsTakenByTheWait) {
    fake::onWait = [] { return fake::deliver(fake::event(EID_LOCK)); };
    turn();
    EXPECT_EQ(state(), "LOCKED");
    EXPECT_EQ(calls, afterWait(startOfALock));
}

TEST_F(Disconnected, OtherEventsStayQueued) {
    turnThatWaits({fake::event(EID_TIMEOUT, 1), fake::event(EID_RECONNECT), childExit(100)});
    EXPECT_EQ(fake::queue.size(), 3U);
}

TEST_F(Disconnected, AFailingQueueSleepsOneSecondPerTurn) {
    fake::takeResult = -1;
    turn();
    EXPECT_EQ(state(), "DISCONNECTED");
    EXPECT_EQ(calls, afterWait({"sleepSeconds(1)"}));
}

TEST_F(Locked, ItsTimerEndsItWithACacheFlush) {
    turn({fake::event(EID_TIMEOUT, 70000)});
    EXPECT_EQ(state(), "FLUSH_CACHE");
    EXPECT_EQ(calls, (Calls{"getNextEvent(6,13,12)", "pushEvent(9,0,0)"}));
    EXPECT_EQ(queuedIds(), (std::vector<int>{EID_CONNECTPROPERTYCHANGED}));
}

TEST_F(Locked, AReconnectEndsItEarlier) {
    turn({fake::event(EID_RECONNECT, 5, 6)});
    EXPECT_EQ(state(), "FLUSH_CACHE");
    EXPECT_EQ(calls, (Calls{"getNextEvent(6,13,12)", "pushEvent(9,0,0)"}));
}

TEST_F(Locked, AfterTheLockItConnectsAgainIfStillConfigured) {
    for (const char* connected : {"yes", "no"}) {
        fake::setParam(0, "Decoder.Connected", connected);
        enter(LOCKED);
        turn({fake::event(EID_RECONNECT)});
        turn();
        EXPECT_EQ(state(), "DISCONNECTED");
        turn();
        EXPECT_EQ(state(), connected == std::string("yes") ? "CONNECT" : "DISCONNECTED");
        EXPECT_TRUE(fake::queue.empty());
    }
}

TEST_F(Locked, AnotherTimerIsDropped) {
    turn({fake::event(EID_TIMEOUT, 69999)});
    EXPECT_EQ(state(), "LOCKED");
    EXPECT_EQ(calls, (Calls{"getNextEvent(6,13,12)"}));
    EXPECT_TRUE(log.empty());
}

TEST_F(Locked, ARenewedLockIsNotATransition) {
    process.verbosity = 1;
    turn({fake::event(EID_LOCK)});
    EXPECT_EQ(state(), "LOCKED");
    EXPECT_EQ(calls, (Calls{"getNextEvent(6,13,12)", "setTimeout(10000)", "semaphoreIncrease(2003)"}));
    EXPECT_TRUE(log.empty());
}

// Three locks five seconds apart: timers end 10, 15 and 20 seconds after the first.
TEST_F(Locked, LastsUntilTenSecondsAfterTheLastOfThreeLocks) {
    enter(DISCONNECTED);
    turn({fake::event(EID_LOCK)});
    const int first = machine.lockTimerId;
    turn({fake::event(EID_LOCK)});
    const int second = machine.lockTimerId;
    turn({fake::event(EID_TIMEOUT, first)}); // 10 s
    EXPECT_EQ(state(), "LOCKED");
    turn({fake::event(EID_LOCK)}); // 10 s
    const int third = machine.lockTimerId;
    turn({fake::event(EID_TIMEOUT, second)}); // 15 s
    EXPECT_EQ(state(), "LOCKED");
    turn({fake::event(EID_TIMEOUT, third)}); // 20 s
    EXPECT_EQ(state(), "FLUSH_CACHE");
    EXPECT_EQ(fake::semaphores[2003], 3);
}

TEST_F(StopPlaying, EndsThePauseAndStopsThePlayer) {
    playing(1);
    machine.sequencePaused = true;
    enter(STOP_PLAYING);
    turn();
    EXPECT_EQ(state(), "SHUTDOWN_CURRENT_PLAYER");
    EXPECT_EQ(calls, (Calls{"osdClear(1)"}));
    EXPECT_FALSE(machine.sequencePaused);
}

TEST_F(StopPlaying, WithoutAPlayerItIsDone) {
    enter(STOP_PLAYING);
    turn();
    EXPECT_EQ(state(), "PLAYING_STOPPED");
    EXPECT_EQ(calls, (Calls{"osdClear(1)"}));
}

TEST_F(StopPlaying, ThePlayerIsHungUpAndMetAtItsBarrier) {
    playing(1);
    enter(SHUTDOWN_CURRENT_PLAYER);
    turn();
    EXPECT_EQ(state(), "WAIT_DISCONNECT_SHUTDOWN");
    EXPECT_EQ(calls, (Calls{"signalPlayer(100,1)", "masterBarrier(1,100)"}));
    EXPECT_EQ(log, (Log{{7, "Sending HUP to current player\n"}}));
}

TEST_F(StopPlaying, ThePlayersExitIsAwaitedWhenItDoesNotArrive) {
    playing(1);
    enter(SHUTDOWN_CURRENT_PLAYER);
    fake::barrierResults = {-1};
    turn({childExit(currentPlayer, 9)});
    EXPECT_EQ(state(), "PLAYING_STOPPED");
    EXPECT_EQ(calls, (Calls{"signalPlayer(100,1)", "masterBarrier(1,100)", "getNextEvent(2)",
                            "handleError(1,100,9)"}));
}

TEST_F(StopPlaying, AnotherChildsExitMeanwhileIsLoggedAtDebugLevel) {
    playing(1);
    enter(SHUTDOWN_CURRENT_PLAYER);
    fake::barrierResults = {-1};
    turn({childExit(555)});
    EXPECT_EQ(state(), "SHUTDOWN_CURRENT_PLAYER");
    EXPECT_EQ(log, (Log{{7, "Sending HUP to current player\n"}, {7, "SIG_CHILD from PID 555\n"}}));
}

TEST_F(StopPlaying, ThePlayersExitIsClassified) {
    playing(1);
    enter(WAIT_DISCONNECT_SHUTDOWN);
    turn({childExit(currentPlayer, 256)});
    EXPECT_EQ(state(), "PLAYING_STOPPED");
    EXPECT_EQ(calls, (Calls{"getNextEvent(2)", "handleError(1,100,256)"}));
}

TEST_F(StopPlaying, AnotherChildsExitChangesNothing) {
    playing(1);
    enter(WAIT_DISCONNECT_SHUTDOWN);
    turn({childExit(555)});
    EXPECT_EQ(state(), "WAIT_DISCONNECT_SHUTDOWN");
    EXPECT_EQ(log, (Log{{3, "Unknown child event. pid=555"}}));
}

TEST_F(StopPlaying, AFailingQueueChangesNothing) {
    playing(1);
    for (const State waits : {SHUTDOWN_CURRENT_PLAYER, WAIT_DISCONNECT_SHUTDOWN}) {
        enter(waits);
        fake::barrierResults = {-1};
        fake::takeResult = -1;
        turn();
        EXPECT_EQ(state(), stateName(waits));
        EXPECT_EQ(log.back(), (fake::LogLine{3, "Could not wait for events. result=-1"}));
    }
}

TEST_F(StopPlaying, InTheEndPlayersAndSourcesAreForgotten) {
    playing(1);
    launching(2);
    machine.sequencePos = 1;
    enter(PLAYING_STOPPED);
    turn();
    EXPECT_EQ(state(), "DISCONNECTED");
    EXPECT_EQ(calls, (Calls{"param(1) Decoder.Info.CurrentSource=-1"}));
    EXPECT_EQ(process.currentPID, -1);
    EXPECT_EQ(process.pendingPID, -1);
    EXPECT_EQ(machine.currentSource, -1);
    EXPECT_EQ(machine.pendingSource, -1);
    EXPECT_EQ(machine.sequencePos, -1);
}

TEST_F(StopPlaying, ALockDuringPlaybackEndsInTheLockAtOnce) {
    playing(1);
    enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
    turn({fake::event(EID_LOCK)});
    turn();
    turn();
    turn({childExit(currentPlayer)});
    turn();
    turn();
    EXPECT_EQ(state(), "LOCKED");
    EXPECT_EQ(calls.back(), "semaphoreIncrease(2003)");
}
