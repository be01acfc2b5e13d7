#include "barrier/master_barrier.h"

#include "barrier/barrier_table.h"
#include "events/event_queue.h"
#include "process/signal_mask.h"
#include "tests/fakes/fake_libcommon.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::vector<int> sentTo; // queues given to msgsnd, in order

} // namespace

// Records the order of releases; refuses queue 0, which belongs to another program on the machine.
extern "C" int msgsnd(int queue, const void* message, std::size_t size, int flags) {
    EXPECT_EQ(size, 52U);
    EXPECT_EQ(flags, 0);
    sentTo.push_back(queue);
    if (queue == 0) {
        errno = EINVAL;
        return -1;
    }
    using Send = int(int, const void*, std::size_t, int);
    return reinterpret_cast<Send*>(dlsym(RTLD_NEXT, "msgsnd"))(queue, message, size, flags);
}

namespace {

namespace fs = std::filesystem;
using Log = std::vector<fake::LogLine>;

// Players a and b with barriers, and one whose barrier was never made.
constexpr int a = 700001;
constexpr int b = 700002;
constexpr int stranger = 700003;

// What a player reads from its queue.
struct Received {
    long type;
    std::array<std::int32_t, 13> words;
};

struct MasterBarrier : testing::Test {
    MasterBarrier() {
        fake::reset();
        flushEventQueue();
        msgctl(msgget(IPC_PRIVATE, 0600), IPC_RMID,
               nullptr); // a machine's first queue has number 0: use that up
        sentTo.clear();
        std::string name = (fs::temp_directory_path() / "master.XXXXXX").string();
        root = mkdtemp(name.data());
        fs::create_directories(root / "var/tmp");
        setenv("APPLIANCE_ROOT", root.c_str(), 1);
        for (const int pid : {a, b}) {
            EXPECT_EQ(createBarrier(pid), 0);
            queueOf[pid] = barrierQueue(pid);
        }
        testing::internal::CaptureStdout();
    }
    ~MasterBarrier() override {
        if (!outputTaken)
            testing::internal::GetCapturedStdout();
        for (const auto& [pid, queue] : queueOf)
            msgctl(queue, IPC_RMID, nullptr);
        fs::remove_all(root);
    }

    static void push(int id, int value1, int value2) {
        Event event{};
        event.id = id;
        event.value1 = value1;
        event.value2 = value2;
        pushEvent(event);
    }

    // What masterBarrier logged, without the queue's own lines.
    static Log masterLog() {
        Log lines;
        for (const fake::LogLine& line : fake::log)
            if (line.text.starts_with("masterBarrier"))
                lines.push_back(line);
        return lines;
    }

    std::string output() {
        outputTaken = true;
        return testing::internal::GetCapturedStdout();
    }

    // The release that the player found, {0, {}} when none came.
    Received released(int pid) {
        Received message{};
        const ssize_t got = msgrcv(queueOf[pid], &message, sizeof message.words, 7, IPC_NOWAIT);
        EXPECT_TRUE(got == 52 || (got == -1 && errno == ENOMSG)) << got;
        return message;
    }

    bool isReleased(int pid, int barrierId) {
        const Received message = released(pid);
        return message.type == 7 && message.words[0] == getpid() && message.words[1] == barrierId;
    }

    fs::path root;
    std::map<int, int> queueOf;
    bool outputTaken = false;
};

} // namespace

TEST_F(MasterBarrier, OnePlayerIsReleasedWhenItHasArrived) {
    push(EID_BARRIER, a, 0);
    EXPECT_EQ(masterBarrier(0, 1, a), 0);
    EXPECT_TRUE(isReleased(a, 0));
    EXPECT_FALSE(isReleased(b, 0));
    EXPECT_EQ(output(), "waitBarrier monitoring:700001\n");
}

TEST_F(MasterBarrier, TwoPlayersAreReleasedInPidOrderWhoeverComesFirst) {
    push(EID_BARRIER, b, 1);
    push(EID_BARRIER, a, 1);
    EXPECT_EQ(masterBarrier(1, 2, b, a), 0);
    EXPECT_EQ(sentTo, (std::vector<int>{queueOf[a], queueOf[b]}));
    EXPECT_TRUE(isReleased(a, 1));
    EXPECT_TRUE(isReleased(b, 1));
    EXPECT_EQ(output(), "waitBarrier monitoring:700002\nwaitBarrier monitoring:700001\n");
}

TEST_F(MasterBarrier, WithoutPlayersThereIsNoWait) {
    EXPECT_EQ(masterBarrierOf(1, {}), 0);
    EXPECT_TRUE(sentTo.empty());
}

TEST_F(MasterBarrier, OtherEventsStayQueued) {
    push(EID_SELECT, 3, 0);
    push(EID_BARRIER, a, 1);
    EXPECT_EQ(masterBarrier(1, 1, a), 0);
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_SELECT), SKIP_OTHERS), 0);
    EXPECT_EQ(out.value1, 3);
}

TEST_F(MasterBarrier, AnArrivalOfAPlayerThatIsNotMonitoredIsDropped) {
    push(EID_BARRIER, b, 1);
    push(EID_BARRIER, a, 1);
    EXPECT_EQ(masterBarrier(1, 1, a), 0);
    EXPECT_EQ(masterLog(), (Log{{7, "masterBarrier(1) got event from non monitored PID. pid=700002"}}));
    EXPECT_EQ(sentTo, (std::vector<int>{queueOf[a]}));
    Event out{};
    EXPECT_EQ(peekNextEvent(&out, take(EID_BARRIER), SKIP_OTHERS), -1);
}

TEST_F(MasterBarrier, AnArrivalAtAnotherBarrierEndsTheWait) {
    push(EID_BARRIER, a, 0);
    EXPECT_EQ(masterBarrier(1, 1, a), -1);
    EXPECT_EQ(masterLog(), (Log{{3, "masterBarrier(1) got event with wrong barrierID. barrierID=0"}}));
    EXPECT_TRUE(sentTo.empty());
}

TEST_F(MasterBarrier, ASecondArrivalOfTheSamePlayerEndsTheWait) {
    push(EID_BARRIER, a, 1);
    push(EID_BARRIER, a, 1);
    push(EID_BARRIER, b, 1);
    EXPECT_EQ(masterBarrier(1, 2, a, b), -1);
    EXPECT_EQ(masterLog(),
              (Log{{3, "masterBarrier(1) got multiple barrier from same PID. barrierID=1 pid=700001"}}));
    EXPECT_TRUE(sentTo.empty());
}

TEST_F(MasterBarrier, APidGivenTwiceIsMonitoredOnceAndAwaitedTwice) {
    push(EID_BARRIER, a, 1);
    push(EID_BARRIER, a, 1);
    EXPECT_EQ(masterBarrier(1, 2, a, a), -1);
    EXPECT_EQ(output(), "waitBarrier monitoring:700001\nwaitBarrier monitoring:700001\n");
    EXPECT_EQ(masterLog().size(), 1U);
}

TEST_F(MasterBarrier, AChildsExitAndTheArrivalsSoFarAreHandedBack) {
    push(EID_BARRIER, b, 1);
    push(EID_CHILD, a, 11 << 8);
    EXPECT_EQ(masterBarrier(1, 2, a, b), -1);
    EXPECT_EQ(fake::calls, (std::vector<std::string>{"sendEvent(2,700001,2816)", "sendEvent(7,700002,1)"}));
    EXPECT_TRUE(sentTo.empty());
    EXPECT_TRUE(masterLog().empty());
}

TEST_F(MasterBarrier, ArrivalsAreHandedBackInPidOrder) {
    push(EID_BARRIER, b, 0);
    push(EID_BARRIER, a, 0);
    push(EID_CHILD, stranger, 0);
    EXPECT_EQ(masterBarrier(0, 3, b, a, stranger), -1);
    EXPECT_EQ(fake::calls, (std::vector<std::string>{"sendEvent(2,700003,0)", "sendEvent(7,700001,0)",
                                                     "sendEvent(7,700002,0)"}));
}

TEST_F(MasterBarrier, TheWholeRecordOfAChildsExitIsHandedBack) {
    Event exit{};
    exit.id = EID_CHILD;
    exit.value1 = a;
    exit.payload[9] = 5;
    pushEvent(exit);
    EXPECT_EQ(masterBarrier(1, 1, a), -1);
    ASSERT_EQ(fake::sentEvents.size(), 1U);
    EXPECT_EQ(fake::sentEvents[0].payload[9], 5);
}

TEST_F(MasterBarrier, AFailedReleaseIsLoggedWithTheSupervisorsPidAndTheOthersAreStillReleased) {
    dropBarrier(a); // a is looked up as queue 0 from now on
    push(EID_BARRIER, a, 1);
    push(EID_BARRIER, b, 1);
    EXPECT_EQ(masterBarrier(1, 2, a, b), -1);
    EXPECT_EQ(masterLog(),
              (Log{{3, "masterBarrier(1). msgsnd() failed. dest pid=" + std::to_string(getpid()) + "\n"}}));
    EXPECT_EQ(sentTo, (std::vector<int>{0, queueOf[b]}));
    EXPECT_TRUE(isReleased(b, 1));
}

TEST_F(MasterBarrier, AWaitStartsOverAfterAFailedOne) {
    push(EID_BARRIER, a, 0);
    EXPECT_EQ(masterBarrier(1, 1, a), -1);
    push(EID_BARRIER, b, 1);
    EXPECT_EQ(masterBarrier(1, 1, b), 0);
}

// ---- A queue that another process has filled

namespace {

void fill(int queue) {
    const struct {
        long type = 1;
        char text[1024]{};
    } message{};
    while (::syscall(SYS_msgsnd, queue, &message, sizeof message.text, IPC_NOWAIT) == 0) {
    }
    while (::syscall(SYS_msgsnd, queue, &message, 1, IPC_NOWAIT) == 0) {
    }
}

int filledQueue = -1;

// The signal's handler, to see when it runs.
void takeOneMessage(int) {
    char message[2048];
    msgrcv(filledQueue, message, 1024, 1, IPC_NOWAIT);
}

} // namespace

TEST_F(MasterBarrier, SignalsAreLetInWhileALivingPlayersQueueIsFull) {
    const int self = getpid(); // alive
    ASSERT_EQ(createBarrier(self), 0);
    queueOf[self] = barrierQueue(self);
    filledQueue = queueOf[self];
    fill(filledQueue);
    std::signal(SIGINT, takeOneMessage);
    blockSignalsWhileWorking();
    push(EID_BARRIER, self, 1);
    const pid_t sender = fork();
    if (sender == 0) {
        usleep(100000); // the release waits by now
        kill(self, SIGINT);
        _exit(0);
    }
    alarm(20); // ends the test's process when the signal is not let in
    EXPECT_EQ(masterBarrier(1, 1, self), 0);
    alarm(0);
    waitpid(sender, nullptr, 0);
}

TEST_F(MasterBarrier, AFullQueueOfAPlayerThatHasEndedFailsTheRelease) {
    fill(queueOf[a]);
    push(EID_BARRIER, a, 1);
    alarm(20);
    EXPECT_EQ(masterBarrier(1, 1, a), -1);
    alarm(0);
    EXPECT_EQ(masterLog(),
              (Log{{3, "masterBarrier(1). msgsnd() failed. dest pid=" + std::to_string(getpid()) + "\n"}}));
}
