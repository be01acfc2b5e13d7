// Which process may send which event, and how senders share the queue.
#include <libcommon/events.h>

#include "libcommon/src/events_fixture.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

TEST_F(Events, OtherIdsAreRefused) {
    ASSERT_EQ(initEventQueue(), 0);
    for (const int id : {-1, 14, 65535, INT_MAX, INT_MIN}) {
        EXPECT_EQ(sendError(id), EINVAL);
        EXPECT_EQ(inChild([id] { return sendError(id); }), EINVAL);
    }
    EXPECT_EQ(state(queueId()).msg_qnum, 0U);
}

TEST_F(Events, OnlyTheOwnerSendsTheSupervisorsOwnEvents) {
    ASSERT_EQ(initEventQueue(), 0);
    for (const int id : {EID_CHILD, EID_BUTTON, EID_TIMEOUT, EID_BARRIER}) {
        EXPECT_EQ(sendError(id, getpid()), 0) << id;
        EXPECT_EQ(inChild([id] { return sendError(id, getpid()); }), EPERM) << id;
    }
    EXPECT_EQ(state(queueId()).msg_qnum, 4U);
    for (const int id :
         {EID_ALARM, EID_CONNECTPROPERTYCHANGED, EID_FLUSHCACHE, EID_SELECT, EID_LOCK, EID_RECONNECT})
        EXPECT_EQ(inChild([id] { return sendError(id); }), 0) << id;
}

TEST_F(Events, AProcessWithABarrierAnnouncesItselfAndNobodyElse) {
    ASSERT_EQ(initEventQueue(), 0);
    const Signpost made;
    const pid_t player = start([&] {
        made.await();
        if (sendError(EID_BARRIER, getppid()) != EPERM)
            return 90;
        return sendError(EID_BARRIER, getpid());
    });
    const std::string barrier = file("/var/tmp/barrier." + std::to_string(player));
    write(barrier, "");
    const int queue = msgget(ftok(barrier.c_str(), 0), IPC_CREAT | 0666);
    made.reach();
    EXPECT_EQ(finish(player), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, player);
    msgctl(queue, IPC_RMID, nullptr);
}

// Neither a process that holds the senders' lock nor one that fills the senders' share can stop an announcement.
TEST_F(Events, StrangersCantStopAnAnnouncement) {
    ASSERT_EQ(initEventQueue(), 0);
    const int held = open(idFile().c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    for (std::size_t i = outsidersShare(); i > 0; --i)
        ASSERT_EQ(send(EID_SELECT), 0);
    const Signpost made;
    const pid_t player = start([&] {
        made.await();
        return sendError(EID_BARRIER, getpid());
    });
    const std::string barrier = file("/var/tmp/barrier." + std::to_string(player));
    write(barrier, "");
    const int queue = msgget(ftok(barrier.c_str(), 0), IPC_CREAT | 0666);
    made.reach();
    EXPECT_EQ(finish(player), 0);
    msgctl(queue, IPC_RMID, nullptr);
    close(held);
}

// A program that does not use the library can put anything into the queue.
TEST_F(Events, UnknownIdsAreDroppedOnArrival) {
    ASSERT_EQ(initEventQueue(), 0);
    struct {
        long type = 1;
        Event event{};
    } message;
    for (const int id : {-1, 14, 65535, INT_MIN}) {
        message.event.id = id;
        ASSERT_EQ(msgsnd(queueId(), &message, sizeof message.event, 0), 0);
    }
    ASSERT_EQ(send(EID_LOCK), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
    EXPECT_EQ(logCount("Dropped messages of the event queue that are no events: 1"), 1U) << log();
    EXPECT_EQ(logCount("Dropped"), 1U) << "a flood would fill the log";
}

TEST_F(Events, AnotherProcessSends) {
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT, 4); }), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_SELECT);
    EXPECT_EQ(got.value1, 4);
}

TEST_F(Events, OutsidersAreRefusedAtThreeQuartersAndTheOwnersEventsStillFit) {
    ASSERT_EQ(initEventQueue(), 0);
    const std::size_t share = outsidersShare();
    const std::size_t all = state(queueId()).msg_qbytes / sizeof(Event);
    ASSERT_GE(all - share, 20U);
    EXPECT_EQ(inChild([share] {
                  for (std::size_t i = 0; i < share; ++i)
                      if (send(EID_SELECT) != 0)
                          return 1;
                  return sendError(EID_SELECT);
              }),
              EAGAIN);
    EXPECT_EQ(state(queueId()).msg_qnum, share);
    for (std::size_t i = share; i < all; ++i)
        ASSERT_EQ(send(EID_CHILD), 0) << i;
    EXPECT_EQ(sendError(EID_CHILD), EAGAIN);
    Event got{};
    for (std::size_t i = 0; i < all - share; ++i)
        ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), EAGAIN);
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), EAGAIN);
}

// Senders without the library respect no share.
TEST_F(Events, TheOwnersEventWaitsForRoomInAQueueThatOthersHaveFilled) {
    ASSERT_EQ(initEventQueue(), 0);
    const std::size_t all = state(queueId()).msg_qbytes / sizeof(Event);
    for (std::size_t i = 0; i < all; ++i)
        ASSERT_EQ(send(EID_CHILD), 0) << i;
    std::thread waiting([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        Event got{};
        waitEvent(&got);
    });
    EXPECT_EQ(send(EID_CHILD, 7), 0);
    waiting.join();
    EXPECT_EQ(state(queueId()).msg_qnum, all);
}

TEST_F(Events, ManyOutsidersTogetherStayWithinTheirShare) {
    ASSERT_EQ(initEventQueue(), 0);
    const std::size_t share = outsidersShare();
    const auto results = inChildren(6, [share](int) {
        int sent = 0;
        for (std::size_t i = 0; i < share; ++i)
            sent += send(EID_SELECT) == 0 ? 1 : 0;
        return std::min(sent, 99);
    });
    EXPECT_EQ(state(queueId()).msg_qnum, share);
    for (const int result : results)
        EXPECT_LT(result, 100);
}

TEST_F(Events, AForkedChildOfTheOwnerIsAnOutsider) {
    ASSERT_EQ(initEventQueue(), 0);
    const std::size_t share = outsidersShare();
    for (std::size_t i = 0; i < share; ++i)
        ASSERT_EQ(send(EID_CHILD), 0);
    EXPECT_EQ(inChild([] {
                  Event got{};
                  if (waitEvent(&got) != -1 || errno != ENOENT)
                      return 1;
                  clearEventQueue();
                  removeEventQueue();
                  return sendError(EID_SELECT);
              }),
              EAGAIN);
    EXPECT_EQ(state(queueId()).msg_qnum, share);
    EXPECT_EQ(send(EID_CHILD), 0);
}

// The handler interrupts the sender wherever it is, also while it has the senders' lock.
TEST_F(Events, AnOutsiderSendsFromAHandlerThatInterruptsItsOwnSending) {
    ASSERT_EQ(initEventQueue(), 0);
    std::atomic<bool> stop{false};
    std::thread reader([&] {
        Event got{};
        while (!stop && waitEvent(&got) == 0)
            ;
    });
    const Signpost ready;
    const pid_t sender = start([&] {
        installHandler(SIGUSR2, sendFromHandler);
        ready.reach();
        while (handled < 100)
            send(EID_SELECT);
        return 0;
    });
    ready.await();
    int status = 0;
    while (waitpid(sender, &status, WNOHANG) == 0)
        kill(sender, SIGUSR2);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    stop = true;
    send(EID_LOCK);
    reader.join();
}

// A sender that was stopped while it had the senders' lock delays other senders by a bounded time only.
TEST_F(Events, AStoppedSenderDoesNotHoldUpOthersForEver) {
    ASSERT_EQ(initEventQueue(), 0);
    const int held = open(idFile().c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(inChild([] {
                  const std::int64_t began = gettimeusec();
                  const int error = sendError(EID_SELECT);
                  const std::int64_t took = gettimeusec() - began;
                  return took < 200'000 || took > 1'000'000 ? 90 : error; // a quarter of a second is promised
              }),
              EAGAIN);
    EXPECT_EQ(send(EID_CHILD), 0); // the owner never takes it
    close(held);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
}

TEST_F(Events, AnotherUserIsRefused) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(asUser(63117, 63117, {file(""), file("/run/decoder")}, [] { return sendError(EID_SELECT); }),
              EACCES);
    EXPECT_EQ(asUser(63117, getegid(), {}, [] { return sendError(EID_SELECT); }), 0); // but not the group
}

} // namespace
