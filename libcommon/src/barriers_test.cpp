// The player's side of a barrier; this process plays the supervisor, its children the players.
#include <libcommon/barriers.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/events.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace libcommon;

class Barriers : public ApplianceTest {
protected:
    Barriers() { initEventQueue(); }
    ~Barriers() override {
        for (const int queue : queues_)
            msgctl(queue, IPC_RMID, nullptr);
        removeEventQueue();
    }

    static std::string barrierFile(int pid) { return file("/var/tmp/barrier." + std::to_string(pid)); }

    int makeBarrier(int pid) {
        write(barrierFile(pid), "");
        const int queue = msgget(ftok(barrierFile(pid).c_str(), 0), IPC_CREAT | 0666);
        EXPECT_GE(queue, 0);
        queues_.push_back(queue);
        return queue;
    }

    static void release(int queue, int barrierId, std::size_t length = 52) {
        BarrierRelease message{};
        message.type = 7;
        message.supervisorPid = getpid();
        message.barrierId = barrierId;
        EXPECT_EQ(msgsnd(queue, &message, length, 0), 0);
    }

    // A player that begins once its barrier exists.
    pid_t startPlayer(const std::function<int()>& act) {
        const Signpost go;
        const pid_t player = start([&] {
            go.await();
            return act();
        });
        queue_ = makeBarrier(player);
        go.reach();
        return player;
    }

    static int errorOf(int result) { return result == 0 ? 0 : errno; }

    // Waits until the player sleeps. A queue does not show its waiting readers, so this asks the kernel.
    static bool sleeps(pid_t player) {
        for (int i = 0; i < 10000; ++i) {
            if (read("/proc/" + std::to_string(player) + "/stat").find(") S ") != std::string::npos)
                return true;
            usleep(1000);
        }
        return false;
    }

    int queue_ = -1; // of the player that was started last

private:
    std::vector<int> queues_;
};

TEST_F(Barriers, TheQueueOfABarrierIsFoundByItsPid) {
    const int queue = makeBarrier(4711);
    EXPECT_EQ(getBarrierIPC(4711), queue);
    EXPECT_EQ(getBarrierIPC(4712), -1);
}

TEST_F(Barriers, AFileWithoutAQueueIsNoBarrier) {
    write(barrierFile(4711), "");
    EXPECT_EQ(getBarrierIPC(4711), -1);
}

// Every user may put something under a barrier's name: the folder is for temporary files.
TEST_F(Barriers, OnlyARegularFileHasAQueue) {
    const int queue = makeBarrier(4711);
    ASSERT_EQ(symlink(barrierFile(4711).c_str(), barrierFile(4712).c_str()), 0);
    EXPECT_EQ(getBarrierIPC(4712), -1);
    ASSERT_EQ(mkfifo(barrierFile(4713).c_str(), 0600), 0);
    EXPECT_EQ(getBarrierIPC(4713), -1); // nor does the pipe block
    EXPECT_EQ(getBarrierIPC(4711), queue);
}

TEST_F(Barriers, AnyPidMayBeAskedFor) {
    for (const int pid : {0, -1, INT_MAX, INT_MIN})
        EXPECT_EQ(getBarrierIPC(pid), -1);
    const int queue = makeBarrier(-1);
    EXPECT_EQ(getBarrierIPC(-1), queue);
}

TEST_F(Barriers, APlayerAnnouncesItselfAndWaitsForItsRelease) {
    const pid_t player = startPlayer([] {
        if (announceBarrier(1) != 0)
            return 1;
        return errorOf(awaitBarrierRelease(1));
    });
    Event event{};
    ASSERT_EQ(waitEvent(&event), 0);
    EXPECT_EQ(event.id, EID_BARRIER);
    EXPECT_EQ(event.value1, player);
    EXPECT_EQ(event.value2, 1);
    release(queue_, 1);
    EXPECT_EQ(finish(player), 0);
}

TEST_F(Barriers, AReleaseThatCameFirstIsNotLost) {
    const Signpost released;
    const pid_t player = startPlayer([&] {
        released.await();
        return errorOf(awaitBarrierRelease(0));
    });
    release(queue_, 0);
    released.reach();
    EXPECT_EQ(finish(player), 0);
}

TEST_F(Barriers, TheReleaseOfAnotherBarrierIsAnError) {
    const pid_t player = startPlayer([] { return errorOf(awaitBarrierRelease(1)); });
    release(queue_, 0);
    EXPECT_EQ(finish(player), EPROTO);
}

TEST_F(Barriers, AReleaseIsReadAsFarAsItMatters) {
    for (const auto& [length, expected] : std::vector<std::pair<std::size_t, int>>{
             {8, 0}, {52, 0}, {56, 0}, {7, EPROTO}, {4, EPROTO}, {0, EPROTO}}) {
        const pid_t player = startPlayer([] { return errorOf(awaitBarrierRelease(1)); });
        release(queue_, 1, length);
        EXPECT_EQ(finish(player), expected) << length;
    }
}

TEST_F(Barriers, MessagesOfOtherTypesAreNoRelease) {
    const pid_t player = startPlayer([] { return errorOf(awaitBarrierRelease(1)); });
    BarrierRelease other{};
    other.type = 6;
    other.barrierId = 1;
    ASSERT_EQ(msgsnd(queue_, &other, 52, 0), 0);
    release(queue_, 1);
    EXPECT_EQ(finish(player), 0);
    msqid_ds state{};
    msgctl(queue_, IPC_STAT, &state);
    EXPECT_EQ(state.msg_qnum, 1U);
}

TEST_F(Barriers, AskingDoesNotWait) {
    const Signpost asked;
    const Signpost released;
    const pid_t player = startPlayer([&] {
        if (pollBarrierRelease(1) != -1 || errno != EAGAIN)
            return 1;
        asked.reach();
        released.await();
        return errorOf(pollBarrierRelease(1));
    });
    asked.await();
    release(queue_, 1);
    released.reach();
    EXPECT_EQ(finish(player), 0);
}

TEST_F(Barriers, WithoutABarrierThereIsNothingToWaitFor) {
    EXPECT_EQ(errorOf(awaitBarrierRelease(0)), ENOENT);
    EXPECT_EQ(errorOf(pollBarrierRelease(0)), ENOENT);
}

TEST_F(Barriers, ARemovedBarrierEndsTheWait) {
    const pid_t player = startPlayer([] { return errorOf(awaitBarrierRelease(0)); });
    ASSERT_TRUE(sleeps(player));
    ASSERT_EQ(msgctl(queue_, IPC_RMID, nullptr), 0);
    const int result = finish(player);
    EXPECT_TRUE(result == EIDRM || result == ENOENT) << result; // ENOENT: it had not begun to wait
}

TEST_F(Barriers, ASignalEndsTheWaitAndItCanBeRepeated) {
    const Signpost ready;
    const pid_t player = startPlayer([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGHUP, &action, nullptr);
        ready.reach();
        if (awaitBarrierRelease(1) != -1 || errno != EINTR)
            return 1;
        ready.reach();
        return errorOf(awaitBarrierRelease(1));
    });
    ready.await();
    while (!ready.isReached()) { // until it slept when the signal came
        kill(player, SIGHUP);
        usleep(1000);
    }
    release(queue_, 1);
    EXPECT_EQ(finish(player), 0);
}

TEST_F(Barriers, AnnouncingContinuesWhileTheEventQueueIsFull) {
    Event filler{};
    filler.id = EID_TIMEOUT;
    while (sendEvent(&filler) == 0)
        ;
    const Signpost begun;
    const pid_t player = startPlayer([&] {
        begun.reach();
        return errorOf(announceBarrier(0));
    });
    begun.await();
    Event event{};
    do {
        ASSERT_EQ(waitEvent(&event), 0);
    } while (event.id == EID_TIMEOUT);
    EXPECT_EQ(event.id, EID_BARRIER);
    EXPECT_EQ(event.value1, player);
    EXPECT_EQ(finish(player), 0);
}

TEST_F(Barriers, ASignalEndsAnnouncingToAFullQueue) {
    Event filler{};
    while (sendEvent(&filler) == 0)
        ;
    const Signpost ready;
    const pid_t player = startPlayer([&] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGTERM, &action, nullptr);
        ready.reach();
        const int result = errorOf(announceBarrier(0));
        ready.reach();
        return result;
    });
    ready.await();
    while (!ready.isReached()) {
        kill(player, SIGTERM);
        usleep(1000);
    }
    EXPECT_EQ(finish(player), EINTR);
}

TEST_F(Barriers, AnnouncingWithoutASupervisorFails) {
    removeEventQueue();
    const pid_t player = startPlayer([] { return errorOf(announceBarrier(0)); });
    EXPECT_EQ(finish(player), ENOENT);
}

} // namespace
