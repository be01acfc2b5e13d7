// Processes that confine themselves, and then try what a hijacked one would.
#include "appliance/confinement/confinement.h"

#include "appliance/confinement/filter.h"
#include "libcommon/src/appliance_fixture.h"

#include <libcommon/barriers.h>
#include <libcommon/events.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/msg.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <thread>
#include <unistd.h>

namespace confinement {
namespace {

constexpr int good = 0;
constexpr int kernelCanNot = 90;

bool refused(long result) {
    return result < 0 && (errno == EPERM || errno == EACCES);
}

// A socket that listens on a free port of this machine.
class Listener {
public:
    Listener() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address_), size), 0);
        EXPECT_EQ(listen(fd_, 8), 0);
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address_), &size);
    }
    ~Listener() { close(fd_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::uint16_t port() const { return ntohs(address_.sin_port); }
    int connectTo() const {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int result = connect(fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_);
        const int error = errno;
        close(fd);
        errno = error;
        return result;
    }

private:
    int fd_;
    sockaddr_in address_{};
};

class Confinement : public ApplianceTest {
protected:
    // What `act` returns in a confined process.
    static int confined(const Needs& needs, const std::function<int()>& act) {
        return inChild([&] {
            const Result result = confine(needs);
            if (result.files != Part::done || result.calls != Part::done)
                return kernelCanNot;
            return act();
        });
    }
};

#define EXPECT_CONFINED(needs, ...)                                                                          \
    do {                                                                                                     \
        const int status = confined(needs, __VA_ARGS__);                                                     \
        if (status == kernelCanNot)                                                                          \
            GTEST_SKIP() << "this kernel has no Landlock or no filters of system calls";                     \
        EXPECT_EQ(status, good)                                                                              \
            << "the number is that of the attempt which was not refused, or of the need that was";           \
    } while (false)

TEST_F(Confinement, SeesNoFileButTheOnesItNeeds) {
    write(file("/needed/file"), "text");
    write(file("/other/file"), "secret");
    ASSERT_EQ(symlink(file("/other/file").c_str(), file("/needed/link").c_str()), 0);
    const Needs needs{.files = {.readable = {file("/needed"), file("/missing")}}};
    EXPECT_CONFINED(needs, [] {
        if (open(file("/needed/file").c_str(), O_RDONLY | O_CLOEXEC) < 0)
            return 1;
        int attempt = 2;
        for (const std::string& path :
             {std::string("/etc/passwd"), file("/other/file"), file("/needed/link"),
              file("/needed/../other/file"), std::string("/proc/1/environ"),
              "/proc/" + std::to_string(getppid()) + "/environ", std::string("/proc/self/mem")}) {
            if (!refused(open(path.c_str(), O_RDONLY | O_CLOEXEC)))
                return attempt;
            ++attempt;
        }
        return refused(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) ? good : attempt;
    });
}

TEST_F(Confinement, ChangesOnlyWhatItMayChange) {
    write(file("/needed/file"), "text");
    write(file("/changing/old"), "text");
    write(file("/log"), "");
    const Needs needs{.files = {.readable = {file("/needed")},
                                .writable = {file("/log")},
                                .changing = {file("/changing")}}};
    EXPECT_CONFINED(needs, [] {
        if (!refused(open(file("/needed/file").c_str(), O_WRONLY | O_CLOEXEC)))
            return 1;
        if (!refused(open(file("/needed/new").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)))
            return 2;
        if (!refused(unlink(file("/needed/file").c_str())))
            return 3;
        if (!refused(open("/tmp/confinement-test", O_WRONLY | O_CREAT | O_CLOEXEC, 0600)))
            return 4;
        if (!refused(symlink("/etc/passwd", file("/changing/link").c_str())))
            return 5;
        if (!refused(mknod(file("/changing/fifo").c_str(), S_IFIFO | 0600, 0)))
            return 6;
        if (open(file("/log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC) < 0)
            return 7;
        const int fd = open(file("/changing/new").c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        if (fd < 0 || ftruncate(fd, 4096) != 0)
            return 8;
        return rename(file("/changing/new").c_str(), file("/changing/old").c_str()) == 0 ? good : 9;
    });
}

TEST_F(Confinement, StartsNoProgramAndNoProcess) {
    EXPECT_CONFINED(Needs{.files = {.readable = {"/usr", "/lib", "/lib64"}}}, [] {
        char* arguments[] = {const_cast<char*>("true"), nullptr};
        if (!refused(execv("/usr/bin/true", arguments)))
            return 1;
        if (!refused(fexecve(open("/usr/bin/true", O_RDONLY | O_CLOEXEC), arguments, environ)))
            return 2;
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        if (!refused(child))
            return 3;
        if (!refused(vfork()))
            return 4;
        bool ran = false;
        std::thread([&ran] { ran = true; }).join();
        return ran ? good : 5;
    });
}

TEST_F(Confinement, TouchesNoOtherProcess) {
    EXPECT_CONFINED(Needs{}, [] {
        const pid_t other = getppid();
        for (const int signal : {SIGTERM, SIGHUP, SIGUSR1, SIGSTOP, SIGCONT})
            if (!refused(kill(other, signal)))
                return 1;
        if (!refused(syscall(SYS_tgkill, other, other, SIGCONT)) ||
            !refused(syscall(SYS_tkill, other, SIGCONT)))
            return 2;
        const sigval value{};
        if (!refused(sigqueue(other, SIGCONT, value)) || !refused(kill(-1, SIGCONT)) ||
            !refused(kill(0, SIGCONT)))
            return 3;
        if (!refused(ptrace(PTRACE_ATTACH, other, nullptr, nullptr)))
            return 4;
        char byte = 0;
        iovec here{&byte, 1};
        iovec there{&byte, 1};
        if (!refused(process_vm_readv(other, &here, 1, &there, 1, 0)) ||
            !refused(process_vm_writev(other, &here, 1, &there, 1, 0)))
            return 5;
        rlimit limit{};
        if (!refused(prlimit(other, RLIMIT_NOFILE, nullptr, &limit)) ||
            !refused(setpriority(PRIO_PROCESS, 0, -1)))
            return 6;
        cpu_set_t processors;
        CPU_ZERO(&processors);
        if (!refused(sched_setaffinity(other, sizeof processors, &processors)))
            return 7;
        std::signal(SIGUSR2, SIG_IGN);
        return raise(SIGUSR2) == 0 ? good : 8;
    });
}

TEST_F(Confinement, GetsNoRightsAndNoRootBack) {
    EXPECT_CONFINED(Needs{}, [] {
        if (!refused(setuid(0)) || !refused(setgid(0)))
            return 1;
        if (!refused(mount("none", "/tmp", "tmpfs", 0, nullptr)) || !refused(umount("/tmp")))
            return 2;
        if (!refused(unshare(CLONE_NEWUSER)) || !refused(chroot("/")) || !refused(setns(0, 0)))
            return 3;
        for (const long call :
             {SYS_bpf, SYS_keyctl, SYS_perf_event_open, SYS_init_module, SYS_reboot, SYS_swapon,
              SYS_settimeofday, SYS_personality, SYS_userfaultfd, SYS_quotactl, SYS_acct})
            if (!refused(syscall(call, 0, 0, 0, 0, 0, 0)))
                return static_cast<int>(call % 64) + 10;
        errno = 0;
        const long ring = syscall(SYS_io_uring_setup, 1, nullptr);
        return ring < 0 && (errno == ENOSYS || errno == EPERM) ? good : 4;
    });
}

TEST_F(Confinement, OpensNoListeningAndNoRawSocket) {
    EXPECT_CONFINED(Needs{}, [] {
        const int stream = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int datagrams = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (stream < 0 || datagrams < 0)
            return 1;
        if (!refused(listen(stream, 1)))
            return 2;
        const int local = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (local < 0 || !refused(listen(local, 1)))
            return 3;
        if (!refused(socket(AF_INET, SOCK_RAW, IPPROTO_ICMP)) || !refused(socket(AF_PACKET, SOCK_DGRAM, 0)) ||
            !refused(socket(AF_NETLINK, SOCK_RAW, 9)) || !refused(socket(AF_VSOCK, SOCK_STREAM, 0)))
            return 4;
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return bind(datagrams, reinterpret_cast<sockaddr*>(&any), sizeof any) == 0 ? good : 5;
    });
}

TEST_F(Confinement, ConnectsOnlyToItsEncodersPort) {
    const Listener encoder;
    const Listener panel;
    const int status = inChild([&] {
        const Result result = confine({.connects = {encoder.port()}});
        if (result.ports != Part::done)
            return kernelCanNot;
        if (encoder.connectTo() != 0)
            return 1;
        return refused(panel.connectTo()) ? good : 2;
    });
    if (status == kernelCanNot)
        GTEST_SKIP() << "this kernel's Landlock does not know ports (before Linux 6.7)";
    EXPECT_EQ(status, good);
}

// A decoder with a queue of events, and a player that is confined as players are.
class ConfinedPlayer : public Confinement {
protected:
    ConfinedPlayer() {
        EXPECT_EQ(initEventQueue(), 0);
        write(file("/var/tmp/other"), "");
        other_ = msgget(ftok(file("/var/tmp/other").c_str(), 0), IPC_CREAT | 0600);
    }
    ~ConfinedPlayer() override {
        msgctl(other_, IPC_RMID, nullptr);
        removeEventQueue();
    }

    int asPlayer(const std::function<int(const libcommon::QueuesOfPlayer&)>& act) const {
        const Signpost barrierMade;
        const pid_t player = start([&] {
            barrierMade.await();
            const libcommon::QueuesOfPlayer queues = libcommon::sealAnnouncements();
            if (queues.barrier < 0 || queues.events < 0 || queues.lowestMemoryEnd == 0)
                return 80;
            const Result result =
                confine({.files = {.readable = {file("/run/decoder")}},
                         .queues = {.received = queues.barrier,
                                    .sent = queues.events,
                                    .messages = {queues.announcements[0], queues.announcements[1]},
                                    .lowestMemoryEnd = queues.lowestMemoryEnd}});
            return result.calls == Part::done ? act(queues) : kernelCanNot;
        });
        const std::string barrier = file("/var/tmp/barrier." + std::to_string(player));
        write(barrier, "");
        const int queue = msgget(ftok(barrier.c_str(), 0), IPC_CREAT | 0600);
        barrierMade.reach();
        const int status = finish(player);
        msgctl(queue, IPC_RMID, nullptr);
        return status;
    }

    // The next event; one of id -1 when there is none.
    static Event next() {
        Event none{};
        none.id = -1;
        Event end{};
        end.id = EID_TIMEOUT; // so that waiting ends in any case
        sendEvent(&end);
        Event event{};
        return waitEvent(&event) == 0 && event.id != EID_TIMEOUT ? event : none;
    }

    int other_ = -1; // the queue of another decoder, or of another player
};

#define EXPECT_PLAYER(...)                                                                                   \
    do {                                                                                                     \
        const int status = asPlayer(__VA_ARGS__);                                                            \
        if (status == kernelCanNot)                                                                          \
            GTEST_SKIP() << "this kernel has no filters of system calls";                                    \
        EXPECT_EQ(status, good)                                                                              \
            << "the number is that of the attempt which was not refused, or of the need that was";           \
    } while (false)

struct Message {
    long type = 1;
    Event event{};
};

TEST_F(ConfinedPlayer, AnnouncesItself) {
    EXPECT_PLAYER([](const libcommon::QueuesOfPlayer&) {
        return libcommon::announceBarrier(0) == 0 && libcommon::announceBarrier(1) == 0 ? good : 1;
    });
    for (const int barrier : {0, 1}) {
        const Event event = next();
        EXPECT_EQ(event.id, EID_BARRIER);
        EXPECT_EQ(event.value2, barrier);
    }
}

TEST_F(ConfinedPlayer, SpeaksForNobodyElse) {
    EXPECT_PLAYER([this](const libcommon::QueuesOfPlayer& queues) {
        for (const int id : {EID_CHILD, EID_BUTTON, EID_TIMEOUT, EID_BARRIER, EID_ALARM, EID_SELECT, EID_LOCK,
                             EID_CONNECTPROPERTYCHANGED, EID_FLUSHCACHE, EID_RECONNECT}) {
            Message message;
            message.event.id = id;
            message.event.value1 = getppid();
            if (!refused(msgsnd(queues.events, &message, sizeof message.event, IPC_NOWAIT)))
                return 1;
            Event event = message.event;
            if (sendEvent(&event) == 0)
                return 2;
        }
        const void* own = queues.announcements[0];
        return refused(msgsnd(other_, own, sizeof(Event), IPC_NOWAIT)) &&
                       refused(msgsnd(queues.barrier, own, sizeof(Event), IPC_NOWAIT))
                   ? good
                   : 3;
    });
    msqid_ds state{};
    ASSERT_EQ(msgctl(other_, IPC_STAT, &state), 0);
    EXPECT_EQ(state.msg_qnum, 0U);
}

TEST_F(ConfinedPlayer, CanNotChangeWhatItAnnounces) {
    EXPECT_PLAYER([](const libcommon::QueuesOfPlayer& queues) {
        constexpr std::size_t size = 4096;
        void* page = const_cast<void*>(queues.announcements[0]);
        if (!refused(mprotect(page, size, PROT_READ | PROT_WRITE)))
            return 1;
        if (!refused(munmap(page, size)))
            return 2;
        const auto over = [&](void* at, std::size_t length) {
            return mmap(at, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
        };
        if (over(page, size) != MAP_FAILED || over(static_cast<char*>(page) - size, 2 * size) != MAP_FAILED)
            return 3;
        void* elsewhere = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (elsewhere == MAP_FAILED)
            return 4;
        if (mremap(elsewhere, size, size, MREMAP_MAYMOVE | MREMAP_FIXED, page) != MAP_FAILED ||
            mremap(page, size, 2 * size, MREMAP_MAYMOVE) != MAP_FAILED)
            return 5;
        if (!refused(madvise(page, size, MADV_DONTNEED)))
            return 6;
        // The kernel itself does not write there either.
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0 || ::write(ends[1], "more than enough bytes for that", 30) != 30)
            return 10;
        if (::read(ends[0], page, sizeof(Event)) >= 0)
            return 7;
        if (!refused(open("/proc/self/mem", O_RDWR | O_CLOEXEC)))
            return 8;
        return munmap(elsewhere, size) == 0 ? good : 9;
    });
}

TEST_F(ConfinedPlayer, ReadsNoQueueButItsBarrier) {
    Event select{};
    select.id = EID_SELECT;
    ASSERT_EQ(sendEvent(&select), 0);
    EXPECT_PLAYER([this](const libcommon::QueuesOfPlayer& queues) {
        char message[256];
        for (const int queue : {queues.events, other_})
            if (!refused(msgrcv(queue, message, sizeof message - sizeof(long), 0, IPC_NOWAIT)))
                return 1;
        for (const int queue : {queues.events, queues.barrier, other_}) {
            msqid_ds state{};
            if (msgctl(queue, IPC_STAT, &state) != 0)
                return 2;
            if (!refused(msgctl(queue, IPC_RMID, nullptr)) || !refused(msgctl(queue, IPC_SET, &state)))
                return 3;
        }
        if (!refused(msgget(0x5eed1234, IPC_CREAT | 0600)) ||
            !refused(semget(0x5eed1234, 1, IPC_CREAT | 0600)) ||
            !refused(shmget(0x5eed1234, 4096, IPC_CREAT | 0600)))
            return 4;
        return libcommon::pollBarrierRelease(0) != 0 && errno == EAGAIN ? good : 5;
    });
    EXPECT_EQ(next().id, EID_SELECT) << "it is still there";
}

TEST_F(Confinement, ARowThatIsTooLongIsNeverInstalled) {
    EXPECT_EQ(inChild([] {
                  Filter filter;
                  filter.allowValues(SYS_prctl, 0, std::vector<std::uint32_t>(130, PR_GET_NAME));
                  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
                  if (filter.install() || errno != E2BIG)
                      return 1;
                  return prctl(PR_GET_SECCOMP) == 0 ? good : 2;
              }),
              good);
}

TEST(ConfinementResult, SaysWhatStaysOpen) {
    EXPECT_EQ(whatStaysOpen({Part::done, Part::done, Part::done}), "");
    EXPECT_EQ(whatStaysOpen({Part::done, Part::unknownToKernel, Part::done}), "TCP ports (the kernel can't)");
    EXPECT_EQ(whatStaysOpen({Part::unknownToKernel, Part::done, Part::failed}),
              "files (the kernel can't), system calls (failed)");
}

} // namespace
} // namespace confinement
