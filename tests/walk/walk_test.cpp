// Random walks through the state machine of the real supervisor, and a check of the check.
//
// In the test suite each walk takes about fifteen seconds. `random_walk --minutes N [--seed S]` runs walks of a minute,
// one after the other, for that time. `--seed S` or the environment's WALK_SEED repeats the choices of a walk; the
// times at which they reach the supervisor are never quite the same.
#include "tests/walk/checker.h"
#include "tests/walk/walker.h"

#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>

using namespace walk;

namespace {

constexpr int shortWalk = 15; // seconds
constexpr int longWalk = 60;

int numberFrom(const char* name, int otherwise) {
    const char* value = std::getenv(name);
    return value == nullptr ? otherwise : std::atoi(value);
}

unsigned seed() {
    return static_cast<unsigned>(numberFrom("WALK_SEED", static_cast<int>(now() % 1000000)));
}

void keepCoverage(const Coverage& seen) {
    if (const char* file = std::getenv("WALK_COVERAGE")) {
        std::ofstream out(file, std::ios::app);
        for (const auto& [from, to] : seen) {
            out << from << ' ' << to << '\n';
        }
    }
}

void walkFrom(Start start) {
    start.seed = seed();
    start.seconds = numberFrom("WALK_SECONDS", shortWalk);
    std::cout << "seed " << start.seed << ", " << start.seconds << " s, " << start.mode << '\n' << std::flush;
    Walker walker(start);
    std::string problem;
    const History history = walker.walk(problem);
    EXPECT_EQ(problem, "");
    const Verdict verdict = check(history);
    if (const char* folder = std::getenv("WALK_KEEP")) { // to look closer
        std::ofstream out(std::string(folder) + "/walk-" + std::to_string(start.seed) + ".txt");
        for (const Line& line : history.lines) {
            out << describe(line) << '\n';
        }
    }
    std::cout << verdict.transitions << " transitions, " << walker.decoder().actions().size() << " actions, "
              << verdict.looks << " looks, at most " << verdict.machines << " machines\n"
              << describe(verdict.seen);
    keepCoverage(verdict.seen);
    for (const std::string& violation : verdict.violations) {
        ADD_FAILURE() << "seed " << start.seed << ": " << violation;
    }
    EXPECT_GT(verdict.transitions, 20U);
}

} // namespace

TEST(RandomWalk, ThroughAutomaticMode) {
    walkFrom({.mode = "auto"});
}

TEST(RandomWalk, ThroughManualMode) {
    walkFrom({.mode = "manual"});
}

TEST(RandomWalk, FromDisconnected) {
    walkFrom({.mode = "manual", .connects = false});
}

namespace {

// Runs one walk after the other, each in its own process. Returns the exit status.
int walkLong(const char* program, int minutes, unsigned first) {
    static const std::vector<std::string> tests{"ThroughAutomaticMode", "ThroughManualMode",
                                                "FromDisconnected"};
    char coverage[] = "/tmp/walk-coverage-XXXXXX";
    close(mkstemp(coverage));
    const Time until = now() + minutes * 60 * second;
    int failed = 0;
    int walks = 0;
    for (; now() < until; ++walks) {
        const std::string& test = tests[static_cast<std::size_t>(walks) % tests.size()];
        const appliance::Finished finished =
            appliance::runToEnd({program, "--gtest_filter=RandomWalk." + test},
                                {{"WALK_SEED", std::to_string(first + static_cast<unsigned>(walks))},
                                 {"WALK_SECONDS", std::to_string(longWalk)},
                                 {"WALK_COVERAGE", coverage}},
                                appliance::Seconds(longWalk * 3));
        std::cout << test << " seed " << first + static_cast<unsigned>(walks)
                  << (finished.status == 0 ? " passed\n" : " FAILED\n") << std::flush;
        if (finished.status != 0) {
            ++failed;
            std::cout << finished.output << finished.errors << std::flush;
        }
    }
    Coverage seen;
    std::ifstream arrows(coverage);
    for (std::string from, to; arrows >> from >> to;) {
        seen.insert({from, to});
    }
    unlink(coverage);
    std::cout << walks << " walks, " << failed << " failed\n" << describe(seen);
    return failed == 0 ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    int minutes = 0;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--minutes") == 0) {
            minutes = std::atoi(argv[i + 1]);
        } else if (std::strcmp(argv[i], "--seed") == 0) {
            setenv("WALK_SEED", argv[i + 1], 1);
        }
    }
    return minutes > 0 ? walkLong(argv[0], minutes, seed()) : RUN_ALL_TESTS();
}
