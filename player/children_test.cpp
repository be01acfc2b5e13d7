#include "player/children.h"

#include "tests/fakes/fake_libcommon.h"
#include "tests/support/system_log.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// The lines that the handler wrote to the system log, as "PRIORITY TEXT".
std::vector<std::string> systemLog;

} // namespace

void systemLogLine(int priority, const std::string& text) {
    systemLog.push_back(std::to_string(priority) + " " + text);
}

namespace {

// A child that has ended with `status` and waits to be reaped.
int endedChild(int status) {
    const int pid = fork();
    if (pid == 0)
        _exit(status);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    return pid;
}

// A child that lives until it is killed.
int livingChild() {
    const int pid = fork();
    if (pid == 0)
        for (;;)
            pause();
    return pid;
}

class ChildReaper : public testing::Test {
protected:
    ChildReaper() {
        fake::reset();
        systemLog.clear();
    }

    static std::vector<std::pair<int, int>> exits() {
        std::vector<std::pair<int, int>> list;
        for (const Event& event : fake::sentEvents) {
            EXPECT_EQ(event.id, EID_CHILD);
            list.emplace_back(event.value1, event.value2);
        }
        return list;
    }
};

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST_F(ChildReaper, ChildrenThatEndedTogetherAreAnnouncedInOneRunInListOrder) {
    const int first = endedChild(11);
    const int second = endedChild(14);
    addChild(second);
    addChild(first);
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), ElementsAre(Pair(second, 14 << 8), Pair(first, 11 << 8)));
    EXPECT_EQ(waitpid(first, nullptr, WNOHANG), -1) << "reaped";
}

TEST_F(ChildReaper, LivingChildrenStayInTheList) {
    const int living = livingChild();
    const int ended = endedChild(0);
    addChild(living);
    addChild(ended);
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), ElementsAre(Pair(ended, 0)));
    kill(living, SIGKILL);
    siginfo_t info{};
    waitid(P_PID, static_cast<id_t>(living), &info, WEXITED | WNOWAIT);
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), ElementsAre(Pair(ended, 0), Pair(living, SIGKILL)));
}

TEST_F(ChildReaper, ChildOutsideTheListIsNotReaped) {
    const int listed = livingChild();
    addChild(listed);
    const int other = endedChild(7);
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), IsEmpty());
    int status = 0;
    EXPECT_EQ(waitpid(other, &status, 0), other);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    kill(listed, SIGKILL);
    waitpid(listed, nullptr, 0);
}

TEST_F(ChildReaper, OtherSignalsReapNothing) {
    const int ended = endedChild(0);
    addChild(ended);
    reapChildren(SIGUSR1);
    EXPECT_THAT(exits(), IsEmpty());
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), ElementsAre(Pair(ended, 0)));
}

TEST_F(ChildReaper, EmptyListWaitsForNobody) {
    const int ended = endedChild(0);
    reapChildren(SIGCHLD);
    EXPECT_EQ(waitpid(ended, nullptr, WNOHANG), ended);
}

TEST_F(ChildReaper, LostAnnouncementGoesToTheSystemLogAndTheChildIsGone) {
    fake::sendEventResult = -1;
    const int ended = endedChild(0);
    addChild(ended);
    reapChildren(SIGCHLD);
    EXPECT_THAT(systemLog, ElementsAre("3 SIGCHLD: Failed to sendEvent() from the signalHandler"));
    EXPECT_THAT(fake::log, IsEmpty());
    fake::sentEvents.clear();
    reapChildren(SIGCHLD);
    EXPECT_THAT(exits(), IsEmpty());
    EXPECT_EQ(waitpid(ended, nullptr, WNOHANG), -1);
}

TEST_F(ChildReaper, HandlerKeepsErrno) {
    addChild(endedChild(0));
    errno = ENOTTY;
    reapChildren(SIGCHLD);
    EXPECT_EQ(errno, ENOTTY);
}

TEST_F(ChildReaper, ListGrowsWithoutBoundAndEmptiesInOrder) {
    std::vector<int> pids;
    for (int i = 0; i < 100; ++i) {
        pids.push_back(endedChild(0));
        addChild(pids.back());
    }
    reapChildren(SIGCHLD);
    ASSERT_EQ(fake::sentEvents.size(), pids.size());
    for (std::size_t i = 0; i < pids.size(); ++i)
        EXPECT_EQ(fake::sentEvents[i].value1, pids[i]);
}

TEST_F(ChildReaper, InstalledHandlerRestartsSystemCallsAndMakesTheHandshakeSemaphore) {
    installChildReaper();
    EXPECT_THAT(fake::calls, ElementsAre("semaphoreInit(2002)"));
    struct sigaction action {};
    sigaction(SIGCHLD, nullptr, &action);
    EXPECT_EQ(action.sa_handler, reapChildren);
    EXPECT_TRUE(action.sa_flags & SA_RESTART);
}

TEST_F(ChildReaper, InstalledHandlerAnnouncesARealExit) {
    Event announced{}; // the fake's list would allocate, which a handler must not do
    fake::onSendEvent = [&](const Event* event) {
        announced = *event;
        return 0;
    };
    sigset_t childSignal;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    sigprocmask(SIG_BLOCK, &childSignal, nullptr);
    installChildReaper();
    const int ended = endedChild(23);
    addChild(ended);
    EXPECT_EQ(announced.id, 0) << "addChild leaves the signal blocked where it was";
    sigprocmask(SIG_UNBLOCK, &childSignal, nullptr);
    EXPECT_EQ(announced.id, EID_CHILD);
    EXPECT_EQ(announced.value1, ended);
    EXPECT_EQ(announced.value2, 23 << 8);
    std::signal(SIGCHLD, SIG_DFL);
}

} // namespace
