// Checks the whole machine with random lists of steps, a million turns in total.
//
// The environment variables MACHINE_CHECKER_TURNS and MACHINE_CHECKER_SEED replace the number of turns and
// the first seed.
#include "launcher/machine_test.h"
#include "launcher/model/checker/check.h"
#include "launcher/model/checker/shrink.h"
#include "launcher/model/transitions.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace checker;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr long defaultTurns = 200'000; // with sanitizers a turn takes ten times as long
#else
constexpr long defaultTurns = 1'000'000;
#endif
constexpr long defaultSeed = 20261;
constexpr int stepsPerRun = 80;

long fromEnvironment(const char* name, long otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtol(text, nullptr, 10);
}

// Suppresses the lines that the machine prints for each detection in manual mode.
class QuietStandardOutput {
public:
    QuietStandardOutput() : saved_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~QuietStandardOutput() {
        std::fflush(stdout);
        dup2(saved_, STDOUT_FILENO);
        close(saved_);
    }
    QuietStandardOutput(const QuietStandardOutput&) = delete;
    QuietStandardOutput& operator=(const QuietStandardOutput&) = delete;

private:
    int saved_;
};

Steps stepsOfSeed(long seed) {
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    return randomSteps(random, stepsPerRun);
}

// "" or the shrunk list of the first seed that fails, as text for a test.
std::string findFailure(long firstSeed, long turns, const Invariant& extra = nullptr,
                        Steps* found = nullptr) {
    const QuietStandardOutput quiet;
    const long end = coverage.turns + turns;
    for (long seed = firstSeed; coverage.turns < end; ++seed) {
        const Steps steps = stepsOfSeed(seed);
        if (check(steps, extra).empty())
            continue;
        const Steps shrunk = shrink(steps, [&](const Steps& list) { return !check(list, extra).empty(); });
        if (found != nullptr)
            *found = shrunk;
        return "seed " + std::to_string(seed) + ": the machine " + check(shrunk, extra) + "\n" + text(shrunk);
    }
    return "";
}

void printCoverage() {
    std::size_t walked = 0;
    for (std::size_t row = 0; row < transitions().size(); ++row) {
        const Transition& arrow = transitions()[row];
        walked += coverage.walked[row] > 0 ? 1 : 0;
        std::printf("%9ld  %s -> %s: %s\n", coverage.walked[row], stateName(arrow.from), stateName(arrow.to),
                    arrow.condition);
    }
    std::printf("%ld turns, %ld steps, %ld runs; %zu of %zu arrows walked\n", coverage.turns, coverage.steps,
                coverage.runs, walked, transitions().size());
}

} // namespace

TEST(MachineChecker, NothingThatCanHappenBreaksTheMachineAndEveryArrowIsWalked) {
    const long seed = fromEnvironment("MACHINE_CHECKER_SEED", defaultSeed);
    const long turns = fromEnvironment("MACHINE_CHECKER_TURNS", defaultTurns);
    std::printf("first seed %ld, %ld turns\n", seed, turns);
    EXPECT_EQ(findFailure(seed, turns), "");
    printCoverage();
    EXPECT_GE(coverage.turns, turns);
    for (std::size_t row = 0; row < transitions().size(); ++row)
        EXPECT_GT(coverage.walked[row], 0)
            << stateName(transitions()[row].from) << " -> " << stateName(transitions()[row].to) << ": "
            << transitions()[row].condition;
}

TEST(MachineChecker, AFailureIsShrunkToTheStepsThatCauseIt) {
    // Wrong on purpose: source 2 may be shown when the sequence is paused.
    const Invariant neverPausedOnTwo = [] {
        return machine.sequencePaused && machine.currentSource == 2 ? "is paused on source 2" : "";
    };
    Steps found;
    const std::string failure = findFailure(defaultSeed, 100'000, neverPausedOnTwo, &found);
    EXPECT_THAT(failure, testing::HasSubstr("is paused on source 2"));
    EXPECT_LE(found.size(), 4U) << failure;
    EXPECT_FALSE(check(found, neverPausedOnTwo).empty());
    EXPECT_EQ(check(found), "");
    for (std::size_t left = 0; left < found.size(); ++left) {
        Steps shorter = found;
        shorter.erase(shorter.begin() + static_cast<std::ptrdiff_t>(left));
        EXPECT_EQ(check(shorter, neverPausedOnTwo), "") << "without " << text(found[left]);
    }
}

TEST(MachineChecker, AListPrintsAsItIsWrittenInATest) {
    const Steps steps{sequenceMode(1), sources(3, 5), meanwhile(select(-1)), exitOfPending(9), lock()};
    EXPECT_EQ(text(steps), "    const Steps steps{\n"
                           "        sequenceMode(1),\n"
                           "        sources(3, 5),\n"
                           "        meanwhile(select(-1)),\n"
                           "        exitOfPending(9),\n"
                           "        lock(),\n"
                           "    };\n"
                           "    EXPECT_EQ(check(steps), \"\");\n");
}

TEST(MachineChecker, TheSameSeedGivesTheSameList) {
    EXPECT_EQ(stepsOfSeed(7), stepsOfSeed(7));
    EXPECT_NE(stepsOfSeed(7), stepsOfSeed(8));
}

TEST(MachineChecker, AnInvariantThatHoldsFindsNothing) {
    EXPECT_EQ(findFailure(1, 2000, [] { return ""; }), "");
}
