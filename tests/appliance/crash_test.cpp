// A crash ends the supervisor in order, wherever it happens.
#include "tests/appliance/appliance.h"
#include "tests/appliance/event_sender.h"
#include "tests/appliance/isolation.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::eventually;
using appliance::Flood;

constexpr int connectPropertyChanged = 9;
constexpr int flushCache = 10;

bool canCrashHere() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;
#else
    return true;
#endif
}

const std::vector<std::string> shutdownLines{"Skelmor received SIGSEGV. Shutting down and respawning!",
                                             "[SHUTDOWN] Skelmor shutdown started!!!",
                                             "[SHUTDOWN] Sending SIGINT to children...",
                                             "[SHUTDOWN] All children dead...",
                                             "[SHUTDOWN] Removing barriers...",
                                             "[SHUTDOWN] Shutting down event queue...",
                                             "[SHUTDOWN] Closing log system..."};

void expectOrderlyLog(const Appliance& decoder) {
    const std::string log = decoder.log();
    std::size_t at = 0;
    for (const std::string& line : shutdownLines) {
        at = log.find(line, at);
        ASSERT_NE(at, std::string::npos) << line;
        EXPECT_EQ(decoder.countInLog(line), 1U) << line;
    }
}

void expectEnd(Appliance& decoder, bool logged = true) {
    const std::optional<int> status = decoder.supervisor().waitForEnd();
    ASSERT_TRUE(status.has_value()) << "it hangs";
    EXPECT_TRUE(WIFEXITED(*status) && WEXITSTATUS(*status) == 0) << *status;
    if (logged) {
        expectOrderlyLog(decoder);
    }
}

void startDisconnected(Appliance& decoder) {
    decoder.set("Decoder.AutoConnect", "no");
    decoder.start({"-v", "-v"});
    ASSERT_TRUE(decoder.waitForText(0, "Disconnected"));
}

// Sends events that make the disconnected machine read parameters and log its transitions, until it ends.
void provoke(Appliance& decoder) {
    const Flood changes(decoder, connectPropertyChanged, 0, std::chrono::milliseconds(2));
    const Flood flushes(decoder, flushCache, 0, std::chrono::milliseconds(2));
    decoder.supervisor().waitForEnd();
}

struct Place {
    const char* name;
    int runs;
};

class CrashIn : public testing::TestWithParam<Place> {};

TEST_P(CrashIn, EndsInOrder) {
    if (!canCrashHere()) {
        GTEST_SKIP() << "a sanitizer's library must be the first one that is loaded";
    }
    if (!appliance::isolate()) {
        GTEST_SKIP() << "no queues of its own to flood";
    }
    for (int run = 0; run < GetParam().runs && !HasFailure(); ++run) {
        Appliance decoder;
        decoder.setVariable("LD_PRELOAD", CRASH_HERE);
        decoder.setVariable("CRASH_IN", GetParam().name);
        startDisconnected(decoder);
        decoder.supervisor().signal(SIGUSR2);
        provoke(decoder);
        expectEnd(decoder);
    }
}

INSTANTIATE_TEST_SUITE_P(Each, CrashIn,
                         testing::Values(Place{"malloc", 30}, Place{"free", 20}, Place{"logged", 30},
                                         Place{"twice", 30}, Place{"stack", 20}),
                         [](const auto& place) { return std::string(place.param.name); });

// Only the line that was being written at the crash is lost.
TEST(Crash, BeforeALogLineWasWrittenEndsInOrder) {
    if (!canCrashHere() || !appliance::isolate()) {
        GTEST_SKIP() << "a sanitizer, or no queues of its own";
    }
    for (int run = 0; run < 20 && !HasFailure(); ++run) {
        Appliance decoder;
        decoder.setVariable("LD_PRELOAD", CRASH_HERE);
        decoder.setVariable("CRASH_IN", "log");
        startDisconnected(decoder);
        decoder.supervisor().signal(SIGUSR2);
        provoke(decoder);
        expectEnd(decoder);
    }
}

TEST(Crash, InsideTheSystemLogEndsTheProcess) {
    if (!canCrashHere() || !appliance::isolate()) {
        GTEST_SKIP() << "a sanitizer, or no queues of its own";
    }
    for (int run = 0; run < 3 && !HasFailure(); ++run) {
        Appliance decoder;
        decoder.setVariable("LD_PRELOAD", CRASH_HERE);
        decoder.setVariable("CRASH_IN", "syslog");
        decoder.setVariable("LIBCOMMON_LOG", "");
        startDisconnected(decoder);
        decoder.supervisor().signal(SIGUSR2);
        provoke(decoder);
        expectEnd(decoder, false);
    }
}

TEST(Crash, InsideTheAllocatorStopsThePlayerAndRemovesItsBarrier) {
    if (!canCrashHere() || !appliance::isolate()) {
        GTEST_SKIP() << "a sanitizer, or no queues of its own";
    }
    Appliance decoder;
    decoder.addEncoder("Front door");
    decoder.setManual();
    decoder.setVariable("LD_PRELOAD", CRASH_HERE);
    decoder.setVariable("CRASH_IN", "malloc");
    decoder.start({"-v", "-v"});
    ASSERT_TRUE(decoder.showsMoving(0));
    ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    decoder.supervisor().signal(SIGUSR2);
    decoder.ctl({"select", "0"});
    expectEnd(decoder);
    EXPECT_TRUE(decoder.players().empty());
    EXPECT_TRUE(appliance::queues().empty()) << "its barrier's and its own";
}

// The crash comes at any moment while the machine is busy with events and signals.
TEST(Crash, AtAnyMomentEndsInOrder) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "no queues of its own to flood";
    }
    for (int run = 0; run < 50 && !HasFailure(); ++run) {
        Appliance decoder;
        startDisconnected(decoder);
        {
            const Flood changes(decoder, connectPropertyChanged, 0, std::chrono::microseconds(300));
            const Flood flushes(decoder, flushCache, 0, std::chrono::microseconds(300));
            const pid_t pid = decoder.supervisor().pid();
            for (int i = 0; i < 200 + 37 * run; ++i) {
                kill(pid, SIGCHLD);
            }
            decoder.supervisor().signal(SIGSEGV);
            decoder.supervisor().signal(SIGSEGV); // a second SIGSEGV from outside changes nothing
            decoder.supervisor().waitForEnd();
        }
        expectEnd(decoder);
    }
}

} // namespace
