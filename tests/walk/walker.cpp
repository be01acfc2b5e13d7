// The single steps of a walk.
#include "tests/walk/walker.h"

#include "tests/walk/machine.h"
#include "tests/walk/table.h"

#include <algorithm>
#include <csignal>

namespace walk {

using appliance::pause;
using appliance::Seconds;

namespace {

constexpr Seconds startLimit{30};
constexpr Seconds stopLimit{30};
constexpr int attempts = 8;
constexpr int longestSleep = 11; // seconds

// Sources of the walk, by index: 0 Alpha, 1 Beta, 2 Beta gate, 3 Gamma (60 s), 4 Closed, 5 Delta (not manual).
constexpr int sourceCount = 6;

} // namespace

Walker::Walker(const Start& start)
    : start_(start), random_(start.seed), decoder_(start), until_(now() + start.seconds * second) {}

int Walker::below(int limit) {
    // Does not use a distribution of the standard library: those differ from one library to the next.
    return static_cast<int>(random_() % static_cast<unsigned>(limit));
}

bool Walker::timeFor(int seconds) const {
    return now() + seconds * second < until_;
}

bool Walker::ready() {
    return decoder_.await(
        {"DISCONNECTED", "AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT", "MANUAL_WAIT_FOR_NEW_SELECTION"}, startLimit);
}

History Walker::walk(std::string& problem) {
    problem = ready() ? "" : "the supervisor does not start";
    while (problem.empty() && now() < until_) {
        step();
    }
    if (problem.empty()) {
        problem = stillReacts();
    }
    if (problem.empty() && chance(60)) {
        connect(); // so that the end may come at any moment of a start
        pause(std::chrono::milliseconds(below(400)));
    }
    const int status = decoder_.end();
    if (problem.empty() && status != 0) {
        problem = "exit status " + std::to_string(status);
    }
    return decoder_.history();
}

// Whatever happened before, the machine must disconnect and flush. Makes more than one attempt, because an event that
// was queued earlier may connect again, and connecting drops what is queued.
std::string Walker::stillReacts() {
    for (std::size_t i = 0; i < decoder_.encoders(); ++i) {
        decoder_.encoder(i).behave(Manner::good);
    }
    const std::size_t flushed = decoder_.timesIn("FLUSH_CACHE");
    for (int attempt = 0; attempt < attempts; ++attempt) {
        decoder_.setConnected("no");
        decoder_.send(property, ++tag_, 0);
        decoder_.send(reconnect, ++tag_, 0);
        if (!decoder_.await({"DISCONNECTED"}, stopLimit)) {
            break;
        }
        decoder_.send(flush, ++tag_, 0);
        if (appliance::eventually(
                [&] {
                    return decoder_.state() == "DISCONNECTED" && decoder_.timesIn("FLUSH_CACHE") > flushed;
                },
                Seconds(2))) {
            return "";
        }
    }
    return "the machine does not disconnect and flush; it is in " + decoder_.state();
}

void Walker::step() {
    const std::string state = decoder_.state();
    if (state == "LOCKED" && chance(70)) {
        if (timeFor(longestSleep) && chance(15)) {
            waitOut();
        } else if (chance(85)) {
            decoder_.send(reconnect, ++tag_, 0);
        } else {
            decoder_.send(lock, ++tag_, 0);
        }
    } else if (state == "DISCONNECTED" && chance(60)) {
        connect();
    } else if (state.find("SLEEP") != std::string::npos && timeFor(longestSleep) && chance(25)) {
        waitOut();
    } else if (chance(30)) {
        story();
    } else {
        act();
    }
    rest();
}

void Walker::act() {
    const int what = below(100);
    if (what < 18) {
        select(anySource());
    } else if (what < 32) {
        decoder_.press('1');
    } else if (what < 35) {
        decoder_.press('2');
    } else if (what < 38) {
        decoder_.send(lock, ++tag_, 0);
    } else if (what < 40) {
        decoder_.send(reconnect, ++tag_, 0);
    } else if (what < 50) {
        raiseAlarm();
    } else if (what < 54) {
        decoder_.send(flush, ++tag_, 0);
    } else if (what < 57) {
        disconnect();
    } else if (what < 60) {
        connect();
    } else if (what < 66) {
        change();
    } else if (what < 74) {
        killPlayer();
    } else if (what < 84) {
        planPlayer();
    } else if (what < 90) {
        faultEncoder();
    } else if (what < 94) {
        sendStrange();
    } else {
        burst();
    }
}

void Walker::select(int index) {
    decoder_.send(walk::select, index, ++tag_);
}

int Walker::anySource() {
    if (chance(4)) {
        return oneOf(std::vector<int>{-1, sourceCount, 99});
    }
    return below(sourceCount);
}

// A source that works and is not the one that shows.
int Walker::otherSource() {
    static const std::vector<int> working{0, 1, 3, 5};
    return oneOf(working);
}

void Walker::raiseAlarm() {
    static const std::vector<std::string> texts{"", "Door open", "T\xc3\xbcr offen",
                                                "Rauch \xe2\x98\xa0 im Keller"};
    decoder_.send(alarm, below(sourceCount), ++tag_, oneOf(texts));
}

void Walker::disconnect() {
    decoder_.setConnected("no");
    decoder_.send(property, ++tag_, 0);
}

void Walker::connect() {
    switch (below(4)) {
    case 0:
        decoder_.press('1');
        break;
    case 1:
        select(below(sourceCount));
        break;
    case 2:
        raiseAlarm();
        break;
    default:
        decoder_.setConnected("yes");
        decoder_.send(property, ++tag_, 0);
        break;
    }
}

void Walker::change() {
    Settings settings = decoder_.settings();
    Source& source =
        settings.sources[static_cast<std::size_t>(below(static_cast<int>(settings.sources.size())))];
    switch (below(6)) {
    case 0:
        settings.mode = settings.mode == "auto" ? "manual" : "auto";
        break;
    case 1:
        settings.mode = "Auto"; // not a mode: the previous mode stays
        break;
    case 2:
        source.displayTime = source.displayTime == 60 ? 60 : 1 + below(3);
        break;
    case 3:
        source.inAuto = !source.inAuto;
        break;
    case 4:
        source.inManual = !source.inManual;
        break;
    default: // the last source goes or comes back
        if (settings.sources.size() == sourceCount) {
            settings.sources.pop_back();
        } else {
            settings.sources.push_back(
                {.name = "Delta", .address = decoder_.encoder(3).address(), .preset = ""});
        }
        break;
    }
    decoder_.write(settings);
}

std::string Walker::exitWords() {
    static const std::vector<int> statuses{0, 1, 10, 11, 13, 14, 23, 40, 50, 255};
    static const std::vector<int> signals{SIGKILL, SIGSEGV, SIGABRT, SIGTERM};
    return chance(70) ? "exit=" + std::to_string(oneOf(statuses))
                      : "signal=" + std::to_string(oneOf(signals));
}

void Walker::killPlayer() {
    static const std::vector<int> signals{SIGKILL, SIGTERM, SIGSEGV};
    static const std::vector<int> statuses{0, 10, 11, 14, 23, 40, 50, 77};
    const int pid = decoder_.newestPlayer();
    if (pid < 0) {
        return;
    }
    if (chance(50)) {
        decoder_.kill(pid, oneOf(signals));
    } else {
        decoder_.order(pid, oneOf(statuses));
    }
}

void Walker::planPlayer() {
    static const std::vector<std::string> places{"start",   "announced0", "released0", "announced1",
                                                 "playing", "hup",        "leave"};
    const std::string place = oneOf(places);
    const int delay = chance(40) ? 0 : below(500);
    std::string action = chance(75) ? exitWords() : "go";
    if ((place == "announced0" || place == "announced1") && chance(30)) {
        action = "twice";
    } else if (place == "start" && chance(20)) {
        action = "wrong";
    }
    decoder_.plan(place + ' ' + std::to_string(delay) + ' ' + action + (chance(20) ? " deaf" : ""));
    if (chance(70)) {
        select(otherSource());
    }
}

void Walker::faultEncoder() {
    const auto number = static_cast<std::size_t>(below(static_cast<int>(decoder_.encoders())));
    const bool mends = decoder_.encoder(number).manner() != Manner::good;
    decoder_.encoder(number).behave(mends ? Manner::good : static_cast<Manner>(below(manners)));
    if (!mends && chance(60)) {
        decoder_.send(flush, ++tag_, 0);
        decoder_.press('1');
    }
}

// Sends events that did not come from a player or timer of this supervisor.
void Walker::sendStrange() {
    constexpr int strangePid = 1;
    switch (below(3)) {
    case 0:
        decoder_.send(child, strangePid, below(2) << 8);
        break;
    case 1:
        decoder_.send(timeout, 1 + below(1000), 0);
        break;
    default:
        decoder_.send(barrier, strangePid, below(2));
        break;
    }
}

void Walker::burst() {
    for (int i = 2 + below(4); i > 0; --i) {
        switch (below(6)) {
        case 0:
            decoder_.press('1');
            break;
        case 1:
            raiseAlarm();
            break;
        case 2:
            decoder_.send(flush, ++tag_, 0);
            break;
        case 3:
            decoder_.send(property, ++tag_, 0);
            break;
        default:
            select(anySource());
            break;
        }
    }
}

void Walker::rest() {
    if (chance(30)) {
        pause(std::chrono::milliseconds(below(15)));
        return;
    }
    if (chance(60)) {
        pause(std::chrono::milliseconds(40 + below(160)));
    } else {
        const std::size_t before = decoder_.transitions();
        appliance::eventually([&] { return decoder_.state().empty() || decoder_.transitions() > before; },
                              Seconds(1.2));
    }
    decoder_.look();
}

void Walker::waitOut() {
    decoder_.look();
    const std::string state = decoder_.state();
    appliance::eventually([&] { return decoder_.state() != state; }, Seconds(longestSleep));
}

} // namespace walk
