// The checker finds what is wrong: the history of a real walk is accepted, and refused once it is doctored.
#include "tests/walk/checker.h"
#include "tests/walk/walker.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iostream>

using namespace walk;

namespace {

constexpr int walkSeconds = 12;
constexpr std::size_t mostOfAKind = 40;

History recorded() {
    Walker walker({.seed = static_cast<unsigned>(now() % 1000000), .mode = "auto", .seconds = walkSeconds});
    std::string problem;
    History history = walker.walk(problem);
    EXPECT_EQ(problem, "");
    return history;
}

// The numbers of the lines of a kind, those of the shutdown and after it left out.
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

class DoctoredHistory : public testing::Test {
protected:
    static void SetUpTestSuite() { history_ = new History(recorded()); }
    static void TearDownTestSuite() { delete history_; }

    // Changes one line after the other, each in a history of its own, and counts those that go unnoticed.
    void doctor(const std::vector<std::size_t>& places,
                const std::function<void(History&, std::size_t)>& change) {
        ASSERT_FALSE(places.empty());
        const std::size_t step = std::max<std::size_t>(1, places.size() / mostOfAKind);
        std::size_t tried = 0;
        for (std::size_t i = 0; i < places.size(); i += step, ++tried) {
            History doctored = *history_;
            change(doctored, places[i]);
            EXPECT_TRUE(refused(doctored)) << "unnoticed: " << describe(history_->lines[places[i]]);
        }
        std::cout << tried << " doctored histories\n";
    }

    // Exits of players, not of strangers.
    static std::vector<std::size_t> playerExits() {
        std::vector<std::size_t> places = linesOf(*history_, Kind::added, child);
        std::erase_if(places, [](std::size_t place) { return history_->lines[place].value1 == 1; });
        return places;
    }

    static History* history_;
};

History* DoctoredHistory::history_ = nullptr;

} // namespace

TEST_F(DoctoredHistory, IsAcceptedAsItWas) {
    EXPECT_EQ(check(*history_).violations, std::vector<std::string>{});
}

TEST_F(DoctoredHistory, IsRefusedWithAnotherStateInAnyTransition) {
    const std::vector<std::size_t> places = linesOf(*history_, Kind::state);
    doctor(places, [&](History& history, std::size_t place) {
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

TEST_F(DoctoredHistory, IsRefusedWithoutAnyOneTransition) {
    std::vector<std::size_t> places = linesOf(*history_, Kind::state);
    places.pop_back(); // without the last one the machine is only slow
    doctor(places, [](History& history, std::size_t place) {
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}

TEST_F(DoctoredHistory, IsRefusedWithoutTheExitOfAPlayer) {
    doctor(playerExits(), [](History& history, std::size_t place) {
        const int pid = history.lines[place].value1;
        std::erase_if(history.lines, [pid](const Line& line) {
            return line.kind == Kind::added && line.id == child && line.value1 == pid;
        });
    });
}

// The announcement that let a player pass barrier 0.
TEST_F(DoctoredHistory, IsRefusedWithoutTheAnnouncementOfAPlayer) {
    std::vector<std::size_t> places;
    for (const std::size_t place : linesOf(*history_, Kind::state)) {
        const std::string& to = history_->lines[place].to;
        if (to == "SINGLE_PLAYER_LAUNCHED" || to == "WAIT_SHUTDOWN_CURRENT_PLAYER") {
            places.push_back(place);
        }
    }
    doctor(places, [](History& history, std::size_t place) {
        for (; history.lines[place].kind != Kind::added || history.lines[place].id != barrier ||
               history.lines[place].value2 != 0 || history.lines[place].value1 == 1;
             --place) {
        }
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}

TEST_F(DoctoredHistory, IsRefusedWithATimerThatComesEarly) {
    std::vector<std::size_t> places = linesOf(*history_, Kind::added, timeout);
    std::erase_if(places, [](std::size_t place) { return history_->lines[place].value1 < 65536; });
    doctor(places, [](History& history, std::size_t place) { history.lines[place].time -= 5 * second / 10; });
}

TEST_F(DoctoredHistory, IsRefusedWithATimerOfAnotherLength) {
    for (std::size_t i = 0; i < history_->timers.size(); ++i) {
        History doctored = *history_;
        doctored.timers[i].first += 1;
        EXPECT_TRUE(refused(doctored)) << "timer " << doctored.timers[i].second;
    }
}

TEST_F(DoctoredHistory, IsRefusedWithAnotherExitStatus) {
    doctor(playerExits(), [](History& history, std::size_t place) {
        const int pid = history.lines[place].value1;
        for (Line& line : history.lines) {
            if (line.kind == Kind::added && line.id == child && line.value1 == pid) {
                line.value2 = 3 << 8;
            }
        }
    });
}

TEST_F(DoctoredHistory, IsRefusedWithAnotherText) {
    doctor(linesOf(*history_, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].osd[1] = "Another text";
    });
}

TEST_F(DoctoredHistory, IsRefusedWithAnotherLed) {
    doctor(linesOf(*history_, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].colour ^= 1;
    });
}

TEST_F(DoctoredHistory, IsRefusedWithAnotherCurrentSource) {
    doctor(linesOf(*history_, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].currentSource = "17";
    });
}

TEST_F(DoctoredHistory, IsRefusedWithOneMoreChild) {
    doctor(linesOf(*history_, Kind::looked), [](History& history, std::size_t place) {
        history.looks[static_cast<std::size_t>(history.lines[place].number)].children.push_back(1);
    });
}

TEST_F(DoctoredHistory, IsRefusedWhenTheScreenIsNotBlanked) {
    doctor(linesOf(*history_, Kind::state), [](History& history, std::size_t) {
        std::erase_if(history.lines, [](const Line& line) { return line.kind == Kind::blanked; });
    });
}

TEST_F(DoctoredHistory, IsRefusedWithASelectThatDoesNotArrive) {
    const std::vector<std::size_t> flushes = linesOf(*history_, Kind::sent, flush);
    std::vector<std::size_t> places = linesOf(*history_, Kind::added, walk::select);
    std::erase_if(places, [&](std::size_t place) { return place > flushes.back(); });
    doctor(places, [](History& history, std::size_t place) {
        history.lines.erase(history.lines.begin() + static_cast<std::ptrdiff_t>(place));
    });
}
