// One test for each declared arrow: the state, the arrow's event, one turn, and the expected state.
#include "launcher/model/transitions.h"

#include "launcher/machine_test.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

namespace {

constexpr int ownTimer = 70000;

const std::set<State> statesWithCurrentPlayer{
    CURRENT_PLAYER_CRASHED_DURING_PLAYING,
    SEND_ONLY_PTZ,
    SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,
    WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED,
    CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED,
    SHUTDOWN_CURRENT_PLAYER,
    WAIT_DISCONNECT_SHUTDOWN,
    LAUNCH_PENDING_PLAYER,
    WAIT_LAUNCHED_PENDING_PLAYER,
    WAIT_SHUTDOWN_CURRENT_PLAYER,
    SWITCH_PLAYER,
    DONE_SWITCHED_PLAYER,
    CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH,
    CURRENT_PLAYER_CRASHED_DURING_SWITCH,
    PENDING_PLAYER_CRASHED_STOPPING_CURRENT,
    WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH,
    BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH,
    AUTO_START_TIMER,
    AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT,
    AUTO_PAUSE,
    CURRENT_PLAYER_CRASHED_DURING_PAUSE,
    MANUAL_WAIT_FOR_NEW_SELECTION,
};

bool hasPendingPlayer(State state) {
    return state >= WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING &&
           state <= BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH;
}

// The preparation that makes a state take an arrow. An arrow that is not listed needs none.
using Arrow = std::pair<State, State>;
const std::map<Arrow, std::function<void(MachineTest&)>> decisions{
    {{START_UL, CONNECT}, [](auto&) { fake::setParam(0, "Decoder.AutoConnect", "yes"); }},
    {{CONNECT, DISCONNECTED}, [](auto&) { fake::sources.clear(); }},
    {{REQUEST_ENCODER_TYPE, REQUEST_ENCODER_FAILED},
     [](auto&) { fake::cachedSources[2].entry.detectedOK = false; }},
    {{REQUEST_ENCODER_TYPE, LAUNCH_PENDING_PLAYER}, [](auto& test) { test.playing(1); }},
    {{SELECT_SOURCE_ID, SEND_ONLY_PTZ},
     [](auto& test) {
         test.playing(1);
         fake::cachedSources[2].key = fake::cachedSources[1].key;
     }},
    {{REQUEST_ENCODER_FAILED, SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED},
     [](auto& test) { test.playing(1); }},
    {{REQUEST_ENCODER_FAILED, SET_SLEEP_10_TIMER}, [](auto&) { process.mode = MODE_MANUAL; }},
    {{STOP_PLAYING, SHUTDOWN_CURRENT_PLAYER}, [](auto& test) { test.playing(1); }},
    {{LAUNCH_PENDING_PLAYER, COULD_NOT_LAUNCH_PENDING_PLAYER},
     [](auto&) { fake::onLaunchPlayer = [](SourceEntry*) { return -1; }; }},
    {{LAUNCH_CURRENT_PLAYER_POS_WITH_NON_EXISTING, COULD_NOT_LAUNCH_PENDING_PLAYER},
     [](auto&) { fake::onLaunchPlayer = [](SourceEntry*) { return -1; }; }},
    {{COULD_NOT_LAUNCH_PENDING_PLAYER, CURRENT_PLAYER_CRASHED_DURING_PAUSE},
     [](auto&) { machine.sequencePaused = true; }},
    {{AUTO_START_TIMER, AUTO_PAUSE}, [](auto&) { machine.sequencePaused = true; }},
    {{AUTO_GOTO_NEXT_SOURCE, STOP_PLAYING}, [](auto&) { machine.sourceSequence.clear(); }},
    {{MANUAL_GOTO_NEXT_SOURCE, STOP_PLAYING}, [](auto&) { machine.sourceSequence.clear(); }},
    {{AUTO_CHECK_FOR_TIME_LEFT_RECONNECT, REQUEST_ENCODER_TYPE},
     [](auto&) { machine.sequenceStart = fake::now; }},
    {{REQUEST_ENCODER_AFTER_CRASH_DURING_PAUSE, SLEEP_AFTER_CRASH_DURING_PAUSE},
     [](auto&) { fake::cachedSources[2].interrupted = true; }},
};

std::vector<Transition> arrows() {
    const auto all = transitions();
    return {all.begin() + 1, all.end()}; // without the first, which is the start itself
}

struct EveryArrow : MachineTest, testing::WithParamInterface<Transition> {
    void prepare(const Transition& arrow) {
        enter(arrow.from);
        if (statesWithCurrentPlayer.contains(arrow.from))
            playing(1);
        machine.pendingSource = 2;
        if (hasPendingPlayer(arrow.from))
            launching(2);
        machine.sequenceTimerId = machine.sleepTimerId = machine.lockTimerId = ownTimer;
        if (std::string(stateName(arrow.to)).starts_with("MANUAL_") ||
            std::string(stateName(arrow.from)).starts_with("MANUAL_"))
            process.mode = MODE_MANUAL;
    }

    void decide(const Transition& arrow) {
        const auto found = decisions.find({arrow.from, arrow.to});
        if (arrow.trigger == BY_ITSELF && found != decisions.end())
            found->second(*this);
    }

    // For an arrow of an alarm: whether an alarm may be shown now.
    static void admitAlarm(const Transition& arrow) {
        const bool wanted = arrow.from != arrow.to;
        fake::setParam(0, "Decoder.SequenceMode", wanted ? "manual" : "auto");
        machine.lastAlarmTime = wanted ? fake::now - 20'000'000 : fake::now;
    }

    std::vector<Event> cause(const Transition& arrow) {
        switch (arrow.trigger) {
        case BY_ITSELF:
            return {};
        case SHORT_PRESS:
            if (arrow.from == REQUEST_ENCODER_TYPE)
                playing(1);
            return {shortPress()};
        case LONG_PRESS:
            return {longPress()};
        case SELECT:
            return {fake::event(EID_SELECT, 3)};
        case ALARM:
            admitAlarm(arrow);
            return {alarm(3)};
        case OWN_TIMER:
            return {fake::event(EID_TIMEOUT, ownTimer)};
        case OTHER_TIMER:
            return {fake::event(EID_TIMEOUT, ownTimer - 1)};
        case CURRENT_EXIT:
        case PENDING_EXIT:
        case OTHER_CHILD:
            fake::barrierResults = {-1};
            return {childExit(arrow.trigger == CURRENT_EXIT   ? currentPlayer
                              : arrow.trigger == PENDING_EXIT ? pendingPlayer
                                                              : 555)};
        case TOLD_YES:
        case TOLD_NO:
            fake::setParam(0, "Decoder.Connected", arrow.trigger == TOLD_YES ? "yes" : "no");
            return {fake::event(EID_CONNECTPROPERTYCHANGED)};
        case LOCK:
            return {fake::event(EID_LOCK)};
        case RECONNECT:
            return {fake::event(EID_RECONNECT)};
        case FLUSH_REQUEST:
            return {fake::event(EID_FLUSHCACHE)};
        }
        return {};
    }
};

std::string arrowName(const testing::TestParamInfo<Transition>& info) {
    std::string trigger = triggerName(info.param.trigger);
    std::replace(trigger.begin(), trigger.end(), ' ', '_');
    return std::string(stateName(info.param.from)) + "__" + stateName(info.param.to) + "__" + trigger;
}

INSTANTIATE_TEST_SUITE_P(Walked, EveryArrow, testing::ValuesIn(arrows()), arrowName);

} // namespace

TEST_P(EveryArrow, LeadsWhereItIsDeclaredTo) {
    const Transition& arrow = GetParam();
    prepare(arrow);
    decide(arrow);
    turn(cause(arrow));
    EXPECT_EQ(state(), stateName(arrow.to)) << stateName(arrow.from) << ", " << arrow.condition;
    EXPECT_EQ(fake::taken.size(), arrow.trigger == BY_ITSELF ? 0U : 1U);
}

TEST(Transitions, EveryDecisionOfTheTestsIsADeclaredArrow) {
    std::set<Arrow> declared;
    for (const Transition& arrow : transitions())
        if (arrow.trigger == BY_ITSELF)
            declared.insert({arrow.from, arrow.to});
    for (const auto& [arrow, prepare] : decisions)
        EXPECT_TRUE(declared.contains(arrow)) << stateName(arrow.first) << " -> " << stateName(arrow.second);
}

TEST(Transitions, EveryArrowHasACondition) {
    for (const Transition& arrow : transitions())
        EXPECT_STRNE(arrow.condition, "") << stateName(arrow.from) << " -> " << stateName(arrow.to);
}

TEST(StateTable, HasARowForEveryNumberWithItsNameAndHandler) {
    ASSERT_EQ(stateTable().size(), 52U);
    for (int number = 0; number < stateCount; ++number) {
        EXPECT_EQ(stateTable()[static_cast<std::size_t>(number)].number, number);
        EXPECT_EQ(stateHandler(number) == nullptr, number == STATE_NULL);
    }
    EXPECT_STREQ(stateName(0), "NULL");
    EXPECT_STREQ(stateName(1), "START_UL");
    EXPECT_STREQ(stateName(23), "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    EXPECT_STREQ(stateName(51), "MANUAL_WAIT_ERROR_SLEEP_EVENT");
    for (const int bad : {-1, 52, 1000000}) {
        EXPECT_STREQ(stateName(bad), "?");
        EXPECT_EQ(stateHandler(bad), nullptr);
    }
}
