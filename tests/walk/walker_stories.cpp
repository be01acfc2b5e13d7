// The stories of a walk: a few steps each that lead the machine where random choices rarely lead it.
#include "tests/walk/machine.h"
#include "tests/walk/walker.h"

#include <csignal>

namespace walk {

using appliance::pause;
using appliance::Seconds;

namespace {

constexpr Seconds soon{3};
constexpr std::chrono::milliseconds moment{60};

} // namespace

void Walker::story() {
    static const std::vector<void (Walker::*)()> stories{&Walker::playerEndsOnHangUp,
                                                         &Walker::pendingEndsWhileCurrentLeaves,
                                                         &Walker::currentEndsDuringLaunch,
                                                         &Walker::detectionFailsWhilePlaying,
                                                         &Walker::crashDuringPause,
                                                         &Walker::crashDuringPause,
                                                         &Walker::crashWithTimeLeft,
                                                         &Walker::lockAgain,
                                                         &Walker::noSources,
                                                         &Walker::playsWithoutSequence,
                                                         &Walker::pauseDuringDetection,
                                                         &Walker::flushAndSelect,
                                                         &Walker::crashThenEvents,
                                                         &Walker::alarmWhileDisconnected};
    (this->*oneOf(stories))();
}

bool Walker::reachPlaying() {
    for (std::size_t i = 0; i < decoder_.encoders(); ++i) {
        decoder_.encoder(i).behave(Manner::good);
    }
    return decoder_.await({"AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "MANUAL_WAIT_FOR_NEW_SELECTION"}, soon);
}

// A player that does not reach its last barrier: in a switch, a disconnection or after a failed detection.
void Walker::playerEndsOnHangUp() {
    decoder_.plan("hup " + std::to_string(below(100)) + ' ' + exitWords());
    select(otherSource());
    if (!reachPlaying()) {
        return;
    }
    switch (below(3)) {
    case 0:
        disconnect();
        break;
    case 1:
        select(4);
        break;
    default:
        select(otherSource());
        break;
    }
}

void Walker::pendingEndsWhileCurrentLeaves() {
    decoder_.plan(chance(50) ? "leave 400 go" : "hup 400 " + (chance(50) ? exitWords() : "go"));
    select(0);
    if (!reachPlaying()) {
        return;
    }
    static const std::vector<std::string> places{"announced1", "playing", "released0"};
    decoder_.plan(oneOf(places) + " 0 " + exitWords());
    select(3);
}

void Walker::currentEndsDuringLaunch() {
    select(0);
    if (!reachPlaying()) {
        return;
    }
    const int player = decoder_.newestPlayer();
    decoder_.plan("start 500 go");
    select(3);
    if (player > 0 && decoder_.await({"WAIT_LAUNCHED_PENDING_PLAYER"}, soon)) {
        decoder_.kill(player, SIGKILL);
    }
}

void Walker::detectionFailsWhilePlaying() {
    static const std::vector<Manner> failures{Manner::closes, Manner::stalls, Manner::denies,
                                              Manner::talksNonsense};
    if (!reachPlaying()) {
        return;
    }
    decoder_.encoder(3).behave(oneOf(failures));
    decoder_.send(flush, ++tag_, 0);
    select(5);
    if (chance(60)) {
        pause(std::chrono::milliseconds(below(300)));
        select(otherSource()); // interrupts the detection
    }
}

void Walker::crashDuringPause() {
    if (manual() || !reachPlaying()) {
        return;
    }
    decoder_.press('1');
    if (!decoder_.await({"AUTO_PAUSE"}, soon)) {
        return;
    }
    decoder_.look();
    killPlayer();
    if (!decoder_.await({"SLEEP_AFTER_CRASH_DURING_PAUSE"}, soon)) {
        return;
    }
    decoder_.look();
    if (chance(40)) {
        for (std::size_t i = 0; i < decoder_.encoders(); ++i) {
            decoder_.encoder(i).behave(Manner::closes);
        }
    } else if (chance(40)) {
        decoder_.plan("start 0 exit=11");
    }
    switch (below(5)) {
    case 0:
        decoder_.press('1');
        break;
    case 1:
        select(otherSource());
        break;
    case 2:
        disconnect();
        break;
    default:
        if (timeFor(6)) {
            waitOut();
        }
        break;
    }
}

// Gamma shows for a minute, so there is time to try it again.
void Walker::crashWithTimeLeft() {
    select(3);
    if (!reachPlaying()) {
        return;
    }
    decoder_.look();
    killPlayer();
    if (decoder_.await({"AUTO_WAIT_ERROR_SLEEP_EVENT", "MANUAL_WAIT_ERROR_SLEEP_EVENT"}, soon) &&
        timeFor(6)) {
        waitOut();
    }
}

void Walker::lockAgain() {
    decoder_.send(lock, ++tag_, 0);
    if (decoder_.await({"LOCKED"}, soon)) {
        decoder_.look();
        if (chance(50)) {
            decoder_.send(lock, ++tag_, 0);
        }
        pause(moment);
        if (chance(80) || !timeFor(12)) {
            decoder_.send(reconnect, ++tag_, 0);
        } else {
            waitOut();
        }
    }
}

void Walker::noSources() {
    const Settings before = decoder_.settings();
    Settings empty = before;
    for (Source& source : empty.sources) {
        source.inAuto = false;
        source.inManual = false;
    }
    decoder_.write(empty);
    disconnect();
    if (decoder_.await({"DISCONNECTED"}, soon)) {
        decoder_.press('1');
        if (decoder_.await({"CONNECT"}, soon)) {
            pause(std::chrono::milliseconds(below(1500)));
            connect();
            decoder_.await({"DISCONNECTED"}, soon);
        }
    }
    decoder_.write(before);
}

// A source plays because it was selected, although the sequence is empty.
void Walker::playsWithoutSequence() {
    const Settings before = decoder_.settings();
    Settings empty = before;
    for (Source& source : empty.sources) {
        source.inAuto = false;
        source.inManual = false;
    }
    decoder_.write(empty);
    disconnect();
    if (decoder_.await({"DISCONNECTED"}, soon)) {
        select(0);
        if (reachPlaying() && chance(70)) {
            pause(moment);
            decoder_.press('1');
            pause(moment);
            decoder_.press('1');
        }
        pause(moment);
    }
    decoder_.write(before);
}

void Walker::pauseDuringDetection() {
    if (!reachPlaying()) {
        return;
    }
    decoder_.encoder(3).behave(Manner::slow);
    decoder_.send(flush, ++tag_, 0);
    select(5);
    if (decoder_.await({"REQUEST_ENCODER_TYPE"}, soon)) {
        pause(std::chrono::milliseconds(below(300)));
        if (chance(30)) {
            decoder_.press('2');
        } else {
            decoder_.press('1');
        }
    }
    pause(moment);
    decoder_.encoder(3).behave(Manner::good);
}

void Walker::flushAndSelect() {
    decoder_.send(flush, ++tag_, 0);
    select(1 + below(2)); // one input of one encoder
    pause(std::chrono::milliseconds(below(200)));
    select(1 + below(2));
}

void Walker::crashThenEvents() {
    if (!reachPlaying()) {
        return;
    }
    killPlayer();
    if (!decoder_.await({"AUTO_WAIT_ERROR_SLEEP_EVENT", "MANUAL_WAIT_ERROR_SLEEP_EVENT"}, soon)) {
        return;
    }
    decoder_.look();
    decoder_.press('1'); // does nothing in automatic mode
    pause(moment);
    if (chance(50)) {
        raiseAlarm();
    } else if (chance(50)) {
        disconnect();
    } else {
        select(otherSource());
    }
}

void Walker::alarmWhileDisconnected() {
    disconnect();
    if (decoder_.await({"DISCONNECTED"}, soon)) {
        decoder_.look();
        raiseAlarm();
        pause(moment);
        decoder_.look();
        raiseAlarm();
    }
}

} // namespace walk
