// The checker finds mistakes: it accepts the history of a real walk and refuses a doctored copy of it.
#include "tests/walk/checker.h"
#include "tests/walk/walker.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>

using namespace walk;

namespace {

constexpr int walkSeconds = 8;
constexpr unsigned fixedSeed = 7;
constexpr std::size_t mostOfAKind = 40;
constexpr std::size_t leastInAll = 50;

History recorded() {
    Walker walker({.seed = fixedSeed, .mode = "auto", .seconds = walkSeconds});
    std::string problem;
    History history = walker.walk(problem);
    EXPECT_EQ(problem, "");
    return history;
}

// The numbers of the lines of one kind, except those of the shutdown and after it.
std::vector<std::size_t> linesOf(const History& history, Kind kind, int id = 0) {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < history.lines.size(); ++i) {
        const Line& line = history.lines[i];
        if (line.text.find("[SHUTDOWN]") == 0) {
            break;
        }
        if (line.kind == kind && (id == 0 || line.id == id)) {
            found.push_back(i);
        }
    }
    return found;
}

bool refused(const History& history) {
    return !check(history).violations.empty();
}

std::size_t triedInAll = 0;

// Changes one line at a time, each in its own copy of the history, and prints which changes go unnoticed. One in ten
// may go unnoticed, because some events have no effect on the machine.
void doctor(const History& original, const std::vector<std::size_t>& places,
            const std::function<void(History&, std::size_t)>& change) {
    const std::size_t step = std::max<std::size_t>(1, places.size() / mostOfAKind);
    std::size_t tried = 0;
    std::size_t unnoticed = 0;
    for (std::size_t i = 0; i < places.size(); i += step, ++tried) {
        History doctored = original;
        change(doctored, places[i]);
        if (!refused(doctored)) {
            ++unnoticed;
            std::cout << "unnoticed: " << describe(original.lines[places[i]]) << '\n';
        }
    }
    std::cout << tried << " doctored histories, " << unnoticed << " unnoticed\n";
    EXPECT_LE(unnoticed, tried / 10 + 1);
    EXPECT_TRUE(tried < 2 || unnoticed < tried);
    triedInAll += tried;
}

// Exits of players, not of strangers.
std::vector<std::size_t> playerExits(const History& original) {
    std::vector<std::size_t> places = linesOf(original, Kind::added, child);
    std::erase_if(places, [&](std::size_t place) { return original.lines[place].value1 == 1; });
    return places;
}

void withAnotherStateInAnyTransition(const History& original) {
    const std::vector<std::size_t> places = linesOf(original, Kind::state);
    doctor(original, places, [&](History& history, std::size_t place) {
        Line& line = history.lines[place];
        const auto another = std::ranges::find_if(
            arrows(), [&](const Arrow& arrow) { return arrow.from == line.from && arrow.to != line.to; });
        line.to = another == arrows().end() ? "LOCKED" : another->to;
        const auto next = std::ranges::upper_bound(places, place);
        if (next != places.end()) {
            history.lines[*next].from = line.to;
        }
    });
}

void withoutAnyOneTransition(const History& original) {
    std::vector<std::size_t> places = linesOf(original, Kind::state);
    places.pop_back(); // without the last one the machine is only slow
    doctor(original, places, [](History& history, std::size_t place) {
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}

void withoutTheExitOfAPlayer(const History& original) {
    doctor(original, playerExits(original), [](History& history, std::size_t place) {
        const int pid = history.lines[place].value1;
        std::erase_if(history.lines, [pid](const Line& line) {
            return line.kind == Kind::added && line.id == child && line.value1 == pid;
        });
    });
}

// The announcement that let a player pass barrier 0.
void withoutTheAnnouncementOfAPlayer(const History& original) {
    std::vector<std::size_t> places;
    for (const std::size_t place : linesOf(original, Kind::state)) {
        const std::string& to = original.lines[place].to;
        if (to == "SINGLE_PLAYER_LAUNCHED" || to == "WAIT_SHUTDOWN_CURRENT_PLAYER") {
            places.push_back(place);
        }
    }
    doctor(original, places, [](History& history, std::size_t place) {
        for (; history.lines[place].kind != Kind::added || history.lines[place].id != barrier ||
               history.lines[place].value2 != 0 || history.lines[place].value1 == 1;
             --place) {
        }
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}

void withATimerThatComesEarly(const History& original) {
    std::vector<std::size_t> places = linesOf(original, Kind::added, timeout);
    std::erase_if(places, [&](std::size_t place) { return original.lines[place].value1 < 65536; });
    doctor(original, places, [](History& history, std::size_t place) {
        history.lines[place].time = history.lines.front().time;
    });
}

void withATimerOfAnotherLength(const History& original) {
    std::size_t tried = 0;
    for (; tried < original.timers.size() && tried < mostOfAKind; ++tried) {
        History doctored = original;
        doctored.timers[tried].first += 1;
        EXPECT_TRUE(refused(doctored)) << "timer " << doctored.timers[tried].second;
    }
    std::cout << tried << " doctored histories\n";
}

void withAnotherExitStatus(const History& original) {
    doctor(original, playerExits(original), [](History& history, std::size_t place) {
        const int pid = history.lines[place].value1;
        for (Line& line : history.lines) {
            if (line.kind == Kind::added && line.id == child && line.value1 == pid) {
                line.value2 = 3 << 8;
            }
        }
    });
}

void withAnotherText(const History& original) {
    doctor(original, linesOf(original, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].osd[1] = "Another text";
    });
}

void withAnotherLed(const History& original) {
    doctor(original, linesOf(original, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].colour ^= 1;
    });
}

void withAnotherCurrentSource(const History& original) {
    doctor(original, linesOf(original, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].currentSource = "17";
    });
}

void withOneMoreChild(const History& original) {
    doctor(original, linesOf(original, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].children.push_back(1);
    });
}

void whenTheScreenIsNotBlanked(const History& original) {
    doctor(original, linesOf(original, Kind::state), [](History& history, std::size_t) {
        std::erase_if(history.lines, [](const Line& line) { return line.kind == Kind::blanked; });
    });
}

void withASelectThatDoesNotArrive(const History& original) {
    const std::vector<std::size_t> flushes = linesOf(original, Kind::sent, flush);
    std::vector<std::size_t> places = linesOf(original, Kind::added, walk::select);
    std::erase_if(places, [&](std::size_t place) { return place > flushes.back(); });
    doctor(original, places, [](History& history, std::size_t place) {
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}

struct Doctoring {
    const char* name;
    void (*run)(const History& original);
};

const Doctoring doctorings[] = {
    {"with another state in any transition", withAnotherStateInAnyTransition},
    {"without any one transition", withoutAnyOneTransition},
    {"without the exit of a player", withoutTheExitOfAPlayer},
    {"without the announcement of a player", withoutTheAnnouncementOfAPlayer},
    {"with a timer that comes early", withATimerThatComesEarly},
    {"with a timer of another length", withATimerOfAnotherLength},
    {"with another exit status", withAnotherExitStatus},
    {"with another text", withAnotherText},
    {"with another led", withAnotherLed},
    {"with another current source", withAnotherCurrentSource},
    {"with one more child", withOneMoreChild},
    {"when the screen is not blanked", whenTheScreenIsNotBlanked},
    {"with a select that does not arrive", withASelectThatDoesNotArrive},
};

} // namespace

// One test, because each test runs in its own process and would walk again.
TEST(Checker, AcceptsTheHistoryOfAWalkAndRefusesDoctoredCopies) {
    const History original = recorded();
    EXPECT_EQ(check(original).violations, std::vector<std::string>{});
    for (const Doctoring& doctoring : doctorings) {
        SCOPED_TRACE(doctoring.name);
        std::cout << doctoring.name << ": ";
        doctoring.run(original);
    }
    EXPECT_GE(triedInAll, leastInAll);
}
