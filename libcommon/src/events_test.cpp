#include <libcommon/events.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/semaphores.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

Event eventOf(int id, int value1 = 0, int value2 = 0) {
    Event event{};
    event.id = id;
    event.value1 = value1;
    event.value2 = value2;
    return event;
}

int send(int id, int value1 = 0, int value2 = 0) {
    const Event event = eventOf(id, value1, value2);
    return sendEvent(&event);
}

// Sends and returns 0 or the errno of the failure, for children's results.
int sendError(int id, int value1 = 0) {
    return send(id, value1) == 0 ? 0 : errno;
}

class Events : public ApplianceTest {
protected:
    ~Events() override { removeEventQueue(); }

    static std::string idFile() { return file("/run/decoder/events.id"); }
    static int queueId() {
        int id = -1;
        EXPECT_EQ(std::sscanf(read(idFile()).c_str(), "%d", &id), 1);
        return id;
    }
    static msqid_ds state(int queue) {
        msqid_ds result{};
        EXPECT_EQ(msgctl(queue, IPC_STAT, &result), 0);
        return result;
    }
    static bool queueExists(int queue) {
        msqid_ds result{};
        return msgctl(queue, IPC_STAT, &result) == 0;
    }
    static int queuesOf(uid_t user) {
        msginfo info{};
        int count = 0;
        const int highest = msgctl(0, MSG_INFO, reinterpret_cast<msqid_ds*>(&info));
        for (int i = 0; i <= highest; ++i) {
            msqid_ds queue{};
            if (msgctl(i, MSG_STAT_ANY, &queue) >= 0 && queue.msg_perm.cuid == user)
                ++count;
        }
        return count;
    }
    // The share of a queue that processes other than the owner may fill.
    static std::size_t outsidersShare() {
        const std::size_t bytes = state(queueId()).msg_qbytes;
        return (bytes - bytes / 4) / sizeof(Event);
    }
};

// Somebody's forgotten identifier is 0: it must not name the appliance's queue.
TEST_F(Events, TheQueueIsNeverTheMachinesFirst) {
    if (unshare(CLONE_NEWIPC) != 0)
        GTEST_SKIP() << "no message queues of one's own here: " << std::strerror(errno);
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_NE(queueId(), 0);
    EXPECT_FALSE(queueExists(0));
    EXPECT_EQ(send(EID_LOCK), 0);
}

TEST_F(Events, WhatIsSentArrivesWholeAndInOrder) {
    ASSERT_EQ(initEventQueue(), 0);
    Event event = eventOf(EID_ALARM, 3, -7);
    libcommon::setEventText(event, "T\xc3\xbcr offen");
    ASSERT_EQ(sendEvent(&event), 0);
    ASSERT_EQ(send(EID_SELECT, 5), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(std::memcmp(&got, &event, sizeof got), 0);
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_SELECT);
    EXPECT_EQ(got.value1, 5);
    EXPECT_EQ(log(), "");
}

TEST_F(Events, EveryIdAndAnyValuePasses) {
    ASSERT_EQ(initEventQueue(), 0);
    for (const int id : {0, -1, 2, 13, 65535, 1 << 30}) {
        ASSERT_EQ(send(id, id, ~id), 0);
        Event got{};
        ASSERT_EQ(waitEvent(&got), 0);
        EXPECT_EQ(got.id, id);
        EXPECT_EQ(got.value2, ~id);
    }
}

TEST_F(Events, AnotherProcessSends) {
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT, 4); }), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_SELECT);
    EXPECT_EQ(got.value1, 4);
}

TEST_F(Events, WithoutAnApplianceThereIsNobodyToSendTo) {
    EXPECT_EQ(sendError(EID_SELECT), ENOENT);
    Event got{};
    EXPECT_EQ(waitEvent(&got), -1);
    EXPECT_EQ(errno, ENOENT);
    clearEventQueue();
    removeEventQueue();
    EXPECT_FALSE(exists(idFile()));
}

TEST_F(Events, NullPointersAreRefused) {
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(sendEvent(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(waitEvent(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Events, TheQueueIsTheUsersAndTheGroupsAlone) {
    ASSERT_EQ(initEventQueue(), 0);
    const msqid_ds queue = state(queueId());
    EXPECT_EQ(queue.msg_perm.mode & 0777, 0660);
    EXPECT_EQ(queue.msg_perm.__key, IPC_PRIVATE);
    int pid = 0;
    EXPECT_EQ(std::sscanf(read(idFile()).c_str(), "%*d %d", &pid), 1);
    EXPECT_EQ(pid, getpid());
    struct stat idState {};
    stat(idFile().c_str(), &idState);
    EXPECT_EQ(idState.st_mode & 0007, 0U);
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
                  return sendError(EID_BARRIER);
              }),
              EAGAIN);
    EXPECT_EQ(state(queueId()).msg_qnum, share);
    EXPECT_EQ(send(EID_CHILD), 0);
}

TEST_F(Events, RemovingTheQueueLeavesNothing) {
    ASSERT_EQ(initEventQueue(), 0);
    const int queue = queueId();
    removeEventQueue();
    EXPECT_FALSE(queueExists(queue));
    EXPECT_FALSE(exists(idFile()));
    EXPECT_EQ(sendError(EID_SELECT), ENOENT);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), ENOENT);
    Event got{};
    EXPECT_EQ(waitEvent(&got), -1);
    EXPECT_EQ(errno, ENOENT);
    removeEventQueue();
}

TEST_F(Events, AWaitingThreadIsToldThatTheQueueIsGone) {
    ASSERT_EQ(initEventQueue(), 0);
    std::atomic<int> result{0};
    std::thread waiter([&] {
        Event got{};
        while (waitEvent(&got) == 0)
            ;
        result = errno;
    });
    removeEventQueue();
    waiter.join();
    EXPECT_TRUE(result == EIDRM || result == ENOENT) << result;
}

TEST_F(Events, ClearingDropsWhatIsQueued) {
    ASSERT_EQ(initEventQueue(), 0);
    for (int i = 0; i < 100; ++i)
        ASSERT_EQ(send(EID_SELECT), 0);
    clearEventQueue();
    EXPECT_EQ(state(queueId()).msg_qnum, 0U);
    ASSERT_EQ(send(EID_LOCK), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
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

TEST_F(Events, MessagesThatAreNoEventsAreDropped) {
    ASSERT_EQ(initEventQueue(), 0);
    struct {
        long type = 5;
        char bytes[200] = {};
    } message;
    for (const std::size_t length : {0U, 1U, 51U, 53U, 200U})
        ASSERT_EQ(msgsnd(queueId(), &message, length, 0), 0);
    ASSERT_EQ(send(EID_LOCK), 0);
    Event got{};
    ASSERT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
    EXPECT_EQ(logCount("Dropped a message of the event queue that is no event."), 5U);
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

// ---- Signals.

std::atomic<int> handled{0};

void sendFromHandler(int) {
    const int saved = errno;
    if (send(EID_CHILD, 1) == 0)
        ++handled;
    errno = saved;
}

void installHandler(int signo, void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(signo, &action, nullptr);
}

TEST_F(Events, TheOwnerSendsFromASignalHandler) {
    ASSERT_EQ(initEventQueue(), 0);
    installHandler(SIGUSR2, sendFromHandler);
    errno = EDOM;
    raise(SIGUSR2);
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(state(queueId()).msg_qnum, 1U);
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

TEST_F(Events, WaitingGoesOnAfterSignals) {
    ASSERT_EQ(initEventQueue(), 0);
    installHandler(SIGUSR1, [](int) { ++handled; });
    const pthread_t waiter = pthread_self();
    std::thread disturber([&] {
        while (handled < 50)
            pthread_kill(waiter, SIGUSR1);
        send(EID_LOCK);
    });
    Event got{};
    EXPECT_EQ(waitEvent(&got), 0);
    EXPECT_EQ(got.id, EID_LOCK);
    EXPECT_GE(handled, 50);
    disturber.join();
}

// A sender that was stopped while it had the senders' lock holds up nobody for long.
TEST_F(Events, AStoppedSenderDoesNotHoldUpOthersForEver) {
    ASSERT_EQ(initEventQueue(), 0);
    const int held = open(idFile().c_str(), O_RDONLY);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), EAGAIN);
    EXPECT_EQ(send(EID_CHILD), 0); // the owner never takes it
    close(held);
    EXPECT_EQ(inChild([] { return sendError(EID_SELECT); }), 0);
}

TEST_F(Events, ARunDirectoryThatCantBeMadeIsTold) {
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
    // As a user whom nobody else is, so that the queues can be counted.
    constexpr uid_t user = 63117;
    EXPECT_EQ(asUser(user, user, {file(""), file("/run/decoder")},
                     [] { return initEventQueue() == -1 ? queuesOf(user) : 90; }),
              0);
}

TEST_F(Events, AnotherUserIsRefused) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become another user";
    ASSERT_EQ(initEventQueue(), 0);
    EXPECT_EQ(asUser(63117, 63117, {file(""), file("/run/decoder")}, [] { return sendError(EID_SELECT); }),
              EACCES);
    EXPECT_EQ(asUser(63117, getegid(), {}, [] { return sendError(EID_SELECT); }), 0); // but not the group
}

TEST_F(Events, ThreadsSendAtOnce) {
    ASSERT_EQ(initEventQueue(), 0);
    std::vector<std::thread> senders;
    senders.reserve(4);
    for (int t = 0; t < 4; ++t)
        senders.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                while (send(EID_TIMEOUT, t, i) != 0)
                    std::this_thread::yield();
        });
    int next[4] = {};
    for (int i = 0; i < 2000; ++i) {
        Event got{};
        ASSERT_EQ(waitEvent(&got), 0);
        ASSERT_EQ(got.value2, next[got.value1]++);
    }
    for (std::thread& sender : senders)
        sender.join();
}

// ---- Alarm texts.

std::string textOf(const Event& event) {
    return {reinterpret_cast<const char*>(event.payload)};
}

TEST(EventText, FillsThePayloadUpToThirtyNineBytes) {
    Event event{};
    std::memset(event.payload, 0x55, sizeof event.payload);
    libcommon::setEventText(event, "Door");
    EXPECT_EQ(textOf(event), "Door");
    EXPECT_EQ(event.payload[9], 0);
    libcommon::setEventText(event, std::string(39, 'x').c_str());
    EXPECT_EQ(textOf(event), std::string(39, 'x'));
    libcommon::setEventText(event, std::string(1000, 'y').c_str());
    EXPECT_EQ(textOf(event), std::string(39, 'y'));
}

TEST(EventText, IsCutBetweenCharacters) {
    Event event{};
    libcommon::setEventText(event, (std::string(38, 'x') + "\xc3\xa4").c_str());
    EXPECT_EQ(textOf(event), std::string(38, 'x'));
    libcommon::setEventText(event, (std::string(37, 'x') + "\xc3\xa4").c_str());
    EXPECT_EQ(textOf(event), std::string(37, 'x') + "\xc3\xa4");
    libcommon::setEventText(event, (std::string(36, 'x') + "\xf0\x9f\x98\x80").c_str());
    EXPECT_EQ(textOf(event), std::string(36, 'x'));
}

TEST(EventText, NoTextIsTheEmptyOne) {
    Event event{};
    libcommon::setEventText(event, "before");
    libcommon::setEventText(event, nullptr);
    EXPECT_EQ(textOf(event), "");
    libcommon::setEventText(event, "");
    EXPECT_EQ(textOf(event), "");
}

} // namespace
