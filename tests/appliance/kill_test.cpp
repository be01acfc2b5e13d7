// SIGKILL for the current and the pending player in every state that waits while such a player runs, one row each.
//
// If a state waits for a step or the end of a player, the test stops that player first, so that the machine stays
// in the state. SIGKILL ends a stopped process, too. SLEEP_AFTER_CRASH_DURING_PAUSE and the sleep after a failed
// detection have no player, so they have no row.
#include "tests/appliance/holding.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::eventually;
using appliance::Frozen;
using appliance::Oddity;

// A decoder with two good sources, one whose encoder never answers and one whose address is closed, and the steps
// that lead into its states. A step that fails throws an exception with a text.
class Scene {
public:
    Scene();
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    Appliance& decoder() { return decoder_; }
    int current() const { return current_; }
    int pending() const { return pending_; }
    std::size_t killed() const { return killed_; }

    void kill(int player);
    void letPlayersGo();
    void expectState(const std::string& name);

    // ---- Only the first source's player runs.
    void play();       // in automatic mode
    void playManual(); // in manual mode
    void pause();
    void stopCurrentAndDisconnect();
    void stopCurrentAndFailToDetect();
    void letStoppedCurrentPass(); // passes its barrier and is stopped again
    void waitForDetection();

    // ---- A first player that shows nothing yet.
    void launch();
    void launchAndStopBetweenBarriers();
    void launchAgainDuringPause();

    // ---- The second source's player starts while the first one's shows.
    void launchPending();
    void loseSwitch(); // the pending player dies, the current one keeps showing
    void stopPendingAtSecondBarrier();
    void stopCurrentAtSecondBarrier();
    void holdAtSwitch(); // both have reached their barrier, and the current player does not end
    void loseCurrentAtSecondBarrier();
    void losePendingAtSecondBarrier();
    void losePendingAtSwitch();

private:
    void start();
    void require(bool came, const std::string& what) const;
    void announceFirstBarrier(int stopped);

    Oddity silent_;
    Appliance decoder_;
    int current_ = -1;
    int pending_ = -1;
    std::size_t killed_ = 0;
};

constexpr int goodSource = 1;
constexpr const char* silentSource = "2";
constexpr const char* missingSource = "3";

void neverAnswer(int fd) {
    while (appliance::readRequest(fd)) {
    }
    ::pause();
}

Scene::Scene() : silent_(neverAnswer) {
    const std::vector<std::string> small{"--width", "352", "--height", "288"};
    decoder_.addEncoder("Front door", small);
    decoder_.addEncoder("Garage", small);
    decoder_.addSource("Silent", {{"Address", silent_.address()}});
    decoder_.addSource("Missing", {{"Address", "127.0.0.1:1"}});
    decoder_.set("Decoder.AutoDetectTimeout", "60"); // longer than any test here
    decoder_.setManual();
}

// The supervisor waits for its players when it ends, so none may stay stopped.
Scene::~Scene() {
    letPlayersGo();
}

void Scene::letPlayersGo() {
    decoder_.releasePlayers();
    for (const int player : decoder_.players()) {
        ::kill(player, SIGCONT);
    }
}

void Scene::require(bool came, const std::string& what) const {
    if (!came) {
        throw std::runtime_error(what + " in " + decoder_.state());
    }
}

void Scene::expectState(const std::string& name) {
    require(decoder_.waitForState(name), "never " + name);
}

// Returns when the supervisor has queued the end of the player.
void Scene::kill(int player) {
    ::kill(player, SIGKILL);
    ++killed_;
    require(decoder_.waitForLog("adding event to queue (id=2, val=(" + std::to_string(player) + ','),
            "no end of " + std::to_string(player));
}

void Scene::start() {
    decoder_.start();
    require(decoder_.showsMoving(0), "no picture");
    current_ = decoder_.playerPid();
}

void Scene::play() {
    decoder_.set("Decoder.SequenceMode", "auto");
    start();
    expectState("AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT");
}

void Scene::playManual() {
    start();
    expectState("MANUAL_WAIT_FOR_NEW_SELECTION");
}

void Scene::pause() {
    play();
    decoder_.ctl({"button"});
    expectState("AUTO_PAUSE");
}

void Scene::stopCurrentAndDisconnect() {
    playManual();
    appliance::stop(current_);
    decoder_.ctl({"disconnect", "--wait", "0"});
    expectState("SHUTDOWN_CURRENT_PLAYER");
}

void Scene::stopCurrentAndFailToDetect() {
    playManual();
    appliance::stop(current_);
    decoder_.ctl({"select", missingSource});
    expectState("SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED");
}

void Scene::letStoppedCurrentPass() {
    const Frozen frozen(decoder_);
    appliance::awaitAnnouncement([this] { ::kill(current_, SIGCONT); });
    appliance::stop(current_);
}

void Scene::waitForDetection() {
    playManual();
    decoder_.ctl({"select", silentSource});
    expectState("REQUEST_ENCODER_TYPE");
}

void Scene::launch() {
    decoder_.holdPlayers();
    decoder_.start();
    expectState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    pending_ = appliance::newPlayer(decoder_);
}

void Scene::announceFirstBarrier(int stopped) {
    const Frozen frozen(decoder_);
    appliance::awaitAnnouncement([this] { decoder_.releasePlayers(); });
    appliance::stop(stopped);
}

void Scene::launchAndStopBetweenBarriers() {
    launch();
    announceFirstBarrier(pending_);
    expectState("SINGLE_PLAYER_LAUNCHED");
}

void Scene::launchAgainDuringPause() {
    pause();
    decoder_.holdPlayers();
    kill(current_);
    expectState("SLEEP_AFTER_CRASH_DURING_PAUSE");
    require(decoder_.players().empty(), "a player");
    expectState("WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING");
    pending_ = appliance::newPlayer(decoder_);
}

void Scene::launchPending() {
    decoder_.holdPlayers();
    decoder_.ctl({"select", std::to_string(goodSource)});
    expectState("WAIT_LAUNCHED_PENDING_PLAYER");
    pending_ = appliance::newPlayer(decoder_, current_);
}

void Scene::loseSwitch() {
    launchPending();
    kill(pending_);
    require(decoder_.waitForLog("-> SET_SLEEP_10_TIMER(11)"), "no sleep");
    decoder_.releasePlayers();
}

void Scene::stopPendingAtSecondBarrier() {
    playManual();
    launchPending();
    announceFirstBarrier(pending_);
    expectState("WAIT_SHUTDOWN_CURRENT_PLAYER");
}

void Scene::stopCurrentAtSecondBarrier() {
    playManual();
    launchPending();
    announceFirstBarrier(current_);
    expectState("WAIT_SHUTDOWN_CURRENT_PLAYER");
}

void Scene::holdAtSwitch() {
    stopPendingAtSecondBarrier();
    const std::string announcement = "(id=7, val=(" + std::to_string(current_) + ",1))";
    require(decoder_.waitForLog(announcement, 2),
            "no announcement"); // the first announcement was at its launch
    appliance::stop(current_);
    ::kill(pending_, SIGCONT);
    expectState("SWITCH_PLAYER");
}

void Scene::loseCurrentAtSecondBarrier() {
    stopPendingAtSecondBarrier();
    kill(current_);
    expectState("CURRENT_PLAYER_CRASHED_DURING_SWITCH");
}

void Scene::losePendingAtSecondBarrier() {
    stopCurrentAtSecondBarrier();
    kill(pending_);
    expectState("PENDING_PLAYER_CRASHED_STOPPING_CURRENT");
}

void Scene::losePendingAtSwitch() {
    holdAtSwitch();
    kill(pending_);
    expectState("WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH");
}

// ---- The rows

enum class Victim { current, pending };
enum class Notice { atOnce, withNextSelect }; // some states leave the exit in the queue for a later state

struct Row {
    const char* state;
    Victim victim;
    void (*reach)(Scene&);
    const char* next; // the transition that the exit causes
    Notice notice = Notice::atOnce;
};

std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << row.state << ": " << row.next;
}

const Row rows[] = {
    {"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", Victim::current, [](Scene& s) { s.play(); },
     "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT(37) -> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)"},
    {"AUTO_PAUSE", Victim::current, [](Scene& s) { s.pause(); },
     "AUTO_PAUSE(43) -> CURRENT_PLAYER_CRASHED_DURING_PAUSE(44)"},
    {"MANUAL_WAIT_FOR_NEW_SELECTION", Victim::current, [](Scene& s) { s.playManual(); },
     "MANUAL_WAIT_FOR_NEW_SELECTION(47) -> CURRENT_PLAYER_CRASHED_DURING_PLAYING(7)"},
    {"AUTO_WAIT_ERROR_SLEEP_EVENT", Victim::current,
     [](Scene& s) {
         s.play();
         s.loseSwitch();
     },
     "WAIT_LAUNCHED_PENDING_PLAYER(26) -> CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH(31)",
     Notice::withNextSelect},
    {"MANUAL_WAIT_ERROR_SLEEP_EVENT", Victim::current,
     [](Scene& s) {
         s.playManual();
         s.loseSwitch();
     },
     "WAIT_LAUNCHED_PENDING_PLAYER(26) -> CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH(31)",
     Notice::withNextSelect},
    {"REQUEST_ENCODER_TYPE", Victim::current, [](Scene& s) { s.waitForDetection(); },
     "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED(13) -> CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED(15)",
     Notice::withNextSelect},
    {"WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING", Victim::pending, [](Scene& s) { s.launch(); },
     "WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING(23) -> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"},
    {"WAIT_LAUNCHED_CURRENT_PLAYER_POS_WITH_NON_EXISTING", Victim::pending,
     [](Scene& s) { s.launchAgainDuringPause(); },
     "COULD_NOT_LAUNCH_PENDING_PLAYER(27) -> CURRENT_PLAYER_CRASHED_DURING_PAUSE(44)"},
    {"SINGLE_PLAYER_LAUNCHED", Victim::pending, [](Scene& s) { s.launchAndStopBetweenBarriers(); },
     "SINGLE_PLAYER_LAUNCHED(24) -> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"},
    {"WAIT_LAUNCHED_PENDING_PLAYER", Victim::pending,
     [](Scene& s) {
         s.playManual();
         s.launchPending();
     },
     "WAIT_LAUNCHED_PENDING_PLAYER(26) -> COULD_NOT_LAUNCH_PENDING_PLAYER(27)"},
    {"WAIT_LAUNCHED_PENDING_PLAYER", Victim::current,
     [](Scene& s) {
         s.playManual();
         s.launchPending();
     },
     "WAIT_LAUNCHED_PENDING_PLAYER(26) -> CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH(31)"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER", Victim::pending, [](Scene& s) { s.stopPendingAtSecondBarrier(); },
     "WAIT_SHUTDOWN_CURRENT_PLAYER(28) -> PENDING_PLAYER_CRASHED_STOPPING_CURRENT(33)"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER", Victim::current, [](Scene& s) { s.stopCurrentAtSecondBarrier(); },
     "WAIT_SHUTDOWN_CURRENT_PLAYER(28) -> CURRENT_PLAYER_CRASHED_DURING_SWITCH(32)"},
    {"SWITCH_PLAYER", Victim::pending, [](Scene& s) { s.holdAtSwitch(); },
     "SWITCH_PLAYER(29) -> WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH(34)"},
    {"SWITCH_PLAYER", Victim::current, [](Scene& s) { s.holdAtSwitch(); },
     "SWITCH_PLAYER(29) -> DONE_SWITCHED_PLAYER(30)"},
    {"CURRENT_PLAYER_CRASHED_DURING_SWITCH", Victim::pending,
     [](Scene& s) { s.loseCurrentAtSecondBarrier(); },
     "CURRENT_PLAYER_CRASHED_DURING_SWITCH(32) -> BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH(35)"},
    {"PENDING_PLAYER_CRASHED_STOPPING_CURRENT", Victim::current,
     [](Scene& s) { s.losePendingAtSecondBarrier(); },
     "PENDING_PLAYER_CRASHED_STOPPING_CURRENT(33) -> BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH(35)"},
    {"WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH", Victim::current,
     [](Scene& s) { s.losePendingAtSwitch(); },
     "WAIT_FOR_CURRENT_PLAYER_STOP_DURING_PENDING_CRASH(34) -> BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH(35)"},
    {"SHUTDOWN_CURRENT_PLAYER", Victim::current, [](Scene& s) { s.stopCurrentAndDisconnect(); },
     "SHUTDOWN_CURRENT_PLAYER(17) -> PLAYING_STOPPED(19)"},
    {"WAIT_DISCONNECT_SHUTDOWN", Victim::current,
     [](Scene& s) {
         s.stopCurrentAndDisconnect();
         s.letStoppedCurrentPass();
     },
     "WAIT_DISCONNECT_SHUTDOWN(18) -> PLAYING_STOPPED(19)"},
    {"SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", Victim::current,
     [](Scene& s) { s.stopCurrentAndFailToDetect(); },
     "SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED(13) -> CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED(15)"},
    {"WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED", Victim::current,
     [](Scene& s) {
         s.stopCurrentAndFailToDetect();
         s.letStoppedCurrentPass();
     },
     "WAIT_SHUTDOWN_CURRENT_PLAYER_AFTER_REQUEST_FAILED(14) -> "
     "CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED(15)"},
};

class Kill : public testing::TestWithParam<Row> {};

TEST_P(Kill, IsSurvived) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "needs System V queues of its own";
    }
    const Row& row = GetParam();
    Scene scene;
    Appliance& decoder = scene.decoder();
    row.reach(scene);
    ASSERT_TRUE(decoder.waitForState(row.state));
    scene.kill(row.victim == Victim::current ? scene.current() : scene.pending());
    if (row.notice == Notice::atOnce) {
        EXPECT_TRUE(decoder.waitForLog(row.next));
    } else {
        EXPECT_EQ(decoder.state(), row.state);
    }
    scene.letPlayersGo();
    decoder.ctl({"select", std::to_string(goodSource)});
    EXPECT_TRUE(decoder.waitForLog(row.next));
    EXPECT_TRUE(decoder.showsMoving(goodSource));
    EXPECT_TRUE(decoder.waitForSource(goodSource));
    EXPECT_TRUE(eventually([&] { return decoder.players().size() == 1; }));
    EXPECT_EQ(decoder.countInLog("Player crashed due to an uncaught signal. signo=9"), scene.killed())
        << "each exit is classified once";
}

std::string nameOf(const testing::TestParamInfo<Row>& info) {
    const std::string victim = info.param.victim == Victim::current ? "Current" : "Pending";
    return std::to_string(info.index) + victim + "In_" + info.param.state;
}

INSTANTIATE_TEST_SUITE_P(Of, Kill, testing::ValuesIn(rows), nameOf);

} // namespace
