#include "appliance/screen/monitor/guard.h"

#include <gtest/gtest.h>

#include <libcommon/clock.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace screen {
namespace {

// The showers run in processes of their own, so they count in a file.
class GuardTest : public testing::Test {
protected:
    GuardTest() {
        char folder[] = "/tmp/guard-test-XXXXXX";
        root = mkdtemp(folder);
    }
    ~GuardTest() override { std::filesystem::remove_all(root); }

    // Adds a letter and returns how many there are.
    std::size_t note(char letter) const {
        std::ofstream(root / "notes", std::ios::app) << letter;
        return notes().size();
    }
    std::string notes() const {
        std::string text;
        std::ifstream(root / "notes") >> text;
        return text;
    }

    std::filesystem::path root;
    const std::int64_t soon = gettimeusec() + 20'000'000;
};

TEST_F(GuardTest, EndsWhenTheShowerEndsAsAsked) {
    const auto show = [&](const Attempt&, Shown& shown) {
        note('a');
        shown.tell();
        return Ending::asked;
    };
    EXPECT_EQ(runGuard({"one", "two"}, show, nullptr, soon), 0);
    EXPECT_EQ(notes(), "a");
}

TEST_F(GuardTest, TriesEachDriverAndFailsWhenNoneShows) {
    const auto show = [&](const Attempt& attempt, Shown&) {
        EXPECT_TRUE(attempt.first);
        note(attempt.driver[0]);
        return Ending::noDisplay;
    };
    EXPECT_EQ(runGuard({"x", "y"}, show, nullptr, soon), 1);
    EXPECT_EQ(notes(), "xy");
}

TEST_F(GuardTest, ComesBackAfterALoss) {
    int lost = 0;
    const auto show = [&](const Attempt& attempt, Shown& shown) {
        if (note(attempt.first ? 'f' : 'l') == 4)
            return Ending::asked;
        shown.tell();
        std::exit(1); // as Xlib does
        return Ending::asked;
    };
    EXPECT_EQ(runGuard(
                  {"x"}, show, [&] { ++lost; }, soon),
              0);
    EXPECT_EQ(notes(), "flll");
    EXPECT_EQ(lost, 3);
}

TEST_F(GuardTest, WaitsForADisplayThatWasThereOnce) {
    const auto show = [&](const Attempt&, Shown& shown) {
        const std::size_t turn = note('a');
        if (turn == 1)
            shown.tell();
        return turn == 4 ? Ending::asked : Ending::noDisplay;
    };
    const std::int64_t began = gettimeusec();
    EXPECT_EQ(runGuard({"x"}, show, nullptr, soon), 0);
    EXPECT_EQ(notes(), "aaaa");
    EXPECT_GE(gettimeusec() - began, 600'000) << "pauses of 0.1, 0.2 and 0.4 seconds";
}

TEST_F(GuardTest, TriesACrashingDriverOnceMoreWithMemoryOnly) {
    const auto show = [&](const Attempt& attempt, Shown& shown) {
        note(attempt.safe ? 's' : 'u');
        if (!attempt.safe)
            std::raise(SIGKILL);
        shown.tell();
        return Ending::asked;
    };
    EXPECT_EQ(runGuard({"x"}, show, nullptr, soon), 0);
    EXPECT_EQ(notes(), "us");
}

TEST_F(GuardTest, GoesToTheNextDriverWhenOneCrashesAlways) {
    const auto show = [&](const Attempt& attempt, Shown& shown) {
        note(attempt.driver[0]);
        if (attempt.driver == "x")
            std::raise(SIGKILL);
        shown.tell();
        return Ending::asked;
    };
    EXPECT_EQ(runGuard({"x", "y"}, show, nullptr, soon), 0);
    EXPECT_EQ(notes(), "xxy");
}

TEST_F(GuardTest, BeginsNoAttemptAfterItsTime) {
    const auto show = [&](const Attempt&, Shown& shown) {
        note('a');
        shown.tell();
        return Ending::again;
    };
    EXPECT_EQ(runGuard({"x"}, show, nullptr, gettimeusec() + 300'000), 0);
    EXPECT_FALSE(notes().empty());
}

// A guard in a process of its own, whose shower waits until it is ended.
pid_t startGuard(const Shower& show) {
    const pid_t guard = fork();
    if (guard == 0)
        _exit(runGuard({"x"}, show, nullptr, INT64_MAX));
    return guard;
}

int endOf(pid_t pid) {
    int status = -1;
    for (int i = 0; i < 1000 && waitpid(pid, &status, WNOHANG) == 0; ++i)
        usleep(10'000);
    return status;
}

TEST_F(GuardTest, ASignalEndsTheShowerAndThenTheGuard) {
    const auto show = [&](const Attempt&, Shown& shown) {
        std::signal(SIGTERM, [](int) { _exit(0); });
        shown.tell();
        note('a');
        sleep(20);
        return Ending::asked;
    };
    const pid_t guard = startGuard(show);
    for (int i = 0; i < 1000 && notes().empty(); ++i)
        usleep(10'000);
    kill(guard, SIGINT);
    const int status = endOf(guard);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(GuardTest, TheShowerEndsWithAGuardThatIsKilled) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const auto show = [&](const Attempt&, Shown&) {
        std::ofstream(root / "pid") << getpid() << '\n';
        note('a');
        sleep(20);
        return Ending::asked;
    };
    const pid_t guard = startGuard(show);
    for (int i = 0; i < 1000 && notes().empty(); ++i)
        usleep(10'000);
    pid_t shower = 0;
    std::ifstream(root / "pid") >> shower;
    kill(guard, SIGKILL);
    endOf(guard);
    const int status = endOf(shower);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM) << status;
}

TEST(RunApart, ReturnsWhatTheWorkReturned) {
    EXPECT_EQ(runApart([] { return 7; }, 10), 7);
}

TEST(RunApart, SurvivesACrash) {
    EXPECT_EQ(runApart([] { return std::raise(SIGKILL); }, 10), -1);
}

TEST(RunApart, EndsWorkThatDoesNotEnd) {
    const std::int64_t began = gettimeusec();
    EXPECT_EQ(runApart([] { return static_cast<int>(sleep(30)); }, 1), -1);
    EXPECT_LT(gettimeusec() - began, 15'000'000);
}

} // namespace
} // namespace screen
