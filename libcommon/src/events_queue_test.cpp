// The queue itself: how it is made, found, removed and made again.
#include <libcommon/events.h>

#include "libcommon/src/events_fixture.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

// A program that forgets to set an identifier uses 0: that must not be the appliance's queue.
TEST_F(Events, TheQueueIsNeverTheMachinesFirst) {
    if (unshare(CLONE_NEWIPC) != 0)
        GTEST_SKIP() << "no separate message queues here: " << std::strerror(errno);
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_NE(queueId(), 0);
    EXPECT_FALSE(queueExists(0));
    EXPECT_EQ(send(EID_LOCK), 0);
}

TEST_F(Events, OnlyTheUserAndTheGroupCanUseTheQueue) {
    ASSERT_EQ(initEventQueue(), 0);
    const msqid_ds queue = state(queueId());
    EXPECT_EQ(queue.msg_perm.mode & 0777, 0660);
    EXPECT_NE(queue.msg_perm.__key, IPC_PRIVATE); // it can be found after a kill
    int pid = 0;
    EXPECT_EQ(std::sscanf(read(idFile()).c_str(), "%*d %d", &pid), 1);
    EXPECT_EQ(pid, getpid());
    struct stat idState {};
    stat(idFile().c_str(), &idState);
    EXPECT_EQ(idState.st_mode & 0007, 0U);
}

TEST_F(Events, RemovingTheQueueLeavesNothing) {
    ASSERT_EQ(initEventQueue(), 0);
    const int queue = queueId();
    removeEventQueue();
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(exists(idFile()));
    EXPECT_EQ(sendError(EID_SELECT), ENOENT);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), ENOENT);
    removeEventQueue();
}

// A supervisor that shuts down removes the queue while its thread waits, and runs on for a while.
TEST_F(Events, AWaitingThreadDoesNotReturnAfterTheOwnerRemovedTheQueue) {
    ASSERT_EQ(initEventQueue(), 0);
    std::atomic<int> returned{0};
    std::thread waiter([&] {
        Event got{};
        waitEvent(&got);
        returned = got.id;
    });
    usleep(50'000); // most likely it waits by now
    removeEventQueue();
    usleep(200'000);
    EXPECT_EQ(returned, 0);
    EXPECT_FALSE(exists(idFile())); // nor is the queue made again
    EXPECT_EQ(log(), "");
    ASSERT_EQ(initEventQueue(), 0);
    ASSERT_EQ(send(EID_LOCK), 0);
    waiter.join();
    EXPECT_EQ(returned, EID_LOCK);
}

TEST_F(Events, ARemovedQueueIsMadeAgain) {
    ASSERT_EQ(initEventQueue(), 0);
    const int before = queueId();
    const Signpost go;
    const pid_t sender = start([&] { // which knew the old one
        if (send(EID_SELECT, 1) != 0)
            return 1;
        go.await();
        int result = 0;
        for (int i = 0; i < 2000 && (result = sendError(EID_SELECT, 2)) == ENOENT; ++i)
            usleep(5000);
        return result;
    });
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    ASSERT_EQ(msgctl(before, IPC_RMID, nullptr), 0);
    go.reach();
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, 2);
    EXPECT_EQ(finish(sender), 0);
    EXPECT_NE(queueId(), before);
    EXPECT_EQ(send(EID_CHILD, 3), 0);
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, 3);
    EXPECT_EQ(
        logCount("The event queue was removed by another process; it was made anew, its events are lost."),
        1U)
        << log();
    EXPECT_EQ(logCount(""), 1U) << log();
}

TEST_F(Events, ALostRecordIsWrittenAgainWithTheNextEvent) {
    ASSERT_EQ(initEventQueue(), 0);
    const std::string record = read(idFile());
    for (const char* spoiled : {"", "nonsense"}) {
        std::remove(idFile().c_str());
        if (*spoiled != '\0')
            write(idFile(), spoiled);
        EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), ENOENT);
        ASSERT_EQ(send(EID_FLUSHCACHE), 0); // a timer or the end of a player
        Event got{};
        ASSERT_EQ(waitEvent(&got), 0);
        EXPECT_EQ(read(idFile()), record);
        EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
        ASSERT_EQ(waitEvent(&got), 0);
        EXPECT_EQ(got.id, EID_SELECT);
    }
}

TEST_F(Events, TheOwnersEventIsNotLostWhileTheQueueIsMadeAgain) {
    ASSERT_EQ(initEventQueue(), 0);
    std::atomic<int> received{0};
    std::thread waiter([&] {
        Event got{};
        while (received < 20 && waitEvent(&got) == 0)
            ++received;
    });
    for (int i = 0; i < 20; ++i) {
        while (received < i)
            usleep(100); // events in a removed queue are lost, so wait until it is empty
        ASSERT_EQ(msgctl(queueId(), IPC_RMID, nullptr), 0);
        ASSERT_EQ(send(EID_CHILD, i), 0) << i;
    }
    waiter.join();
    EXPECT_EQ(received, 20);
}

TEST_F(Events, AQueueThatCouldNotBeMadeAtStartIsMadeLater) {
    write(file("/run/decoder/events.id/x"), "a folder in the file's place");
    ASSERT_EQ(initEventQueue(), -1);
    EXPECT_EQ(sendError(EID_CHILD), ENOENT);
    std::thread repairer([] {
        usleep(1'500'000); // after the first failures
        std::remove(file("/run/decoder/events.id/x").c_str());
        std::remove(file("/run/decoder/events.id").c_str());
        while (inChild([] { return sendError(EID_SELECT, 7); }) != 0)
            usleep(10'000);
    });
    Event got{};
    EXPECT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, 7);
    repairer.join();
    EXPECT_EQ(logCount("There is no event queue and none can be made; trying again every second."), 1U)
        << log();
    EXPECT_EQ(logCount("The event queue is there now."), 1U) << log();
}

TEST_F(Events, ALaterSupervisorTakesOverTheQueueOfAKilledOne) {
    EXPECT_EQ(inChild([] { return initEventQueue() == 0 ? sendError(EID_SELECT, 1) : 99; }), 0);
    const int queue = queueId();
    EXPECT_EQ(sendError(EID_SELECT), ENOENT); // its owner is dead
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(queueId(), queue);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, 1);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
}

TEST_F(Events, InitialisingTwiceKeepsTheQueue) {
    ASSERT_EQ(initEventQueue(), 0);
    const int queue = queueId();
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(queueId(), queue);
}

TEST_F(Events, AnIdFileThatNamesNothingIsReplaced) {
    int foreign = msgget(IPC_PRIVATE, IPC_CREAT | 0660); // a queue, but not this one: another time stamp
    const std::string pid = std::to_string(getpid());
    for (const std::string& text :
         {std::string(), std::string("garbage"), std::string("-1 1 1\n"),
          std::string("999999999 " + pid + " 0\n"), std::to_string(foreign) + " " + pid + " 12345\n",
          std::to_string(foreign) + " " + pid + "\n", std::string(1 << 20, '9'),
          std::string("1 1 99999999999999999999999\n"), std::string("0 0 0\n", 3)}) {
        write(idFile(), text);
        EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), ENOENT) << text.substr(0, 50);
        ASSERT_EQ(initEventQueue(), 0);
        EXPECT_NE(queueId(), foreign);
        EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
        removeEventQueue();
    }
    EXPECT_EQ(state(foreign).msg_qnum, 0U);
    msgctl(foreign, IPC_RMID, nullptr);
}

TEST_F(Events, ALinkInTheIdFilesPlaceIsNotFollowed) {
    ASSERT_EQ(initEventQueue(), 0);
    ASSERT_EQ(rename(idFile().c_str(), file("/elsewhere").c_str()), 0);
    ASSERT_EQ(symlink(file("/elsewhere").c_str(), idFile().c_str()), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), ELOOP);
    EXPECT_EQ(send(EID_SELECT), 0); // the owner does not need the file
    unlink(idFile().c_str());
}

TEST_F(Events, ASenderThatKnewAnOlderQueueFindsTheNewOne) {
    const Signpost sent;
    const Signpost go;
    ASSERT_EQ(initEventQueue(), 0);
    const pid_t sender = start([&] {
        if (send(EID_SELECT, 1) != 0)
            return 1;
        sent.reach();
        go.await();
        return sendError(EID_SELECT, 2);
    });
    sent.await();
    removeEventQueue();
    ASSERT_EQ(initEventQueue(), 0);
    go.reach();
    EXPECT_EQ(finish(sender), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.value1, 2);
}

TEST_F(Events, EveryProcessCanAskForTheOwner) {
    EXPECT_EQ(libcommon::eventQueueOwner(), -1);
    ASSERT_EQ(initEventQueue(), 0);
    const pid_t owner = getpid();
    EXPECT_EQ(libcommon::eventQueueOwner(), owner);
    EXPECT_EQ(inChild([owner] { return libcommon::eventQueueOwner() == owner ? 0 : 1; }), 0);
    removeEventQueue();
    EXPECT_EQ(libcommon::eventQueueOwner(), -1);
    ASSERT_EQ(inChild([] { return initEventQueue(); }), 0); // and ends without removing it
    EXPECT_EQ(libcommon::eventQueueOwner(), -1);
    ASSERT_EQ(initEventQueue(), 0); // to be removed with the test
}

TEST_F(Events, ARunDirectoryThatCantBeMadeIsReported) {
    write(file("/run"), "in the folder's place");
    EXPECT_EQ(initEventQueue(), -1);
    EXPECT_EQ(logCount("Failed to attach to the event queue. (errno=20 Not a directory)"), 1U) << log();
    EXPECT_NE(sendError(EID_SELECT), 0);
    std::remove(file("/run").c_str());
}

TEST_F(Events, AFailedAttachLeavesNoQueueBehind) {
    write(file("/run/decoder/events.id/x"), "a folder in the file's place");
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    // As a user that no other process has, so that the queues can be counted.
    constexpr uid_t user = 63117;
    EXPECT_EQ(asUser(user, user, {file(""), file("/run/decoder")},
                     [] { return initEventQueue() == -1 ? queuesOf(user) : 90; }),
              0);
}

} // namespace
