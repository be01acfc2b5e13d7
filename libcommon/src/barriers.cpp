#include <libcommon/barriers.h>

#include "libcommon/src/barrier_file.h"
#include "libcommon/src/event_queue_id.h"
#include "libcommon/src/event_senders.h"
#include "libcommon/src/run_id.h"
#include "libcommon/src/run_path.h"

#include <libcommon/events.h>
#include <libcommon/log.h>

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <ctime>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/msg.h>
#include <unistd.h>

namespace {

constexpr long releaseType = 7;

// The part of a release that is read: the supervisor's pid and the barrier's number.
constexpr std::size_t releaseHead =
    offsetof(libcommon::BarrierRelease, unused) - offsetof(libcommon::BarrierRelease, supervisorPid);
constexpr std::size_t releaseText = releaseHead + sizeof libcommon::BarrierRelease::unused;
static_assert(releaseText == 52);

int receiveRelease(int barrierId, int flags) {
    const int queue = getBarrierIPC(getpid());
    if (queue < 0) {
        errno = ENOENT;
        return -1;
    }
    libcommon::BarrierRelease release{};
    const ssize_t length = msgrcv(queue, &release, releaseText, releaseType, flags | MSG_NOERROR);
    if (length < 0) {
        if (errno == ENOMSG)
            errno = EAGAIN;
        else if (errno == EINVAL) // removed between finding and asking it
            errno = EIDRM;
        return -1;
    }
    if (static_cast<std::size_t>(length) >= releaseHead && release.barrierId == barrierId)
        return 0;
    errno = EPROTO;
    return -1;
}

} // namespace

namespace local {

int barrierQueueOf(const char* path, struct stat& file) {
    if (lstat(path, &file) != 0)
        return -1;
    // Computes ftok(path, 0); ftok() itself would follow a link.
    const auto key = static_cast<key_t>((file.st_ino & 0xffffU) | (file.st_dev & 0xffU) << 16U);
    // The key may come out as IPC_PRIVATE, which means a new queue at each call.
    if (!S_ISREG(file.st_mode) || key == IPC_PRIVATE) {
        errno = ENOENT;
        return -1;
    }
    return msgget(key, 0);
}

} // namespace local

int getBarrierIPC(int pid) {
    char number[16] = {};
    char path[PATH_MAX];
    struct stat file {};
    std::to_chars(number, number + sizeof number - 1, pid);
    if (!local::appliancePathInto(path, sizeof path, {"/var/tmp/barrier.", number}))
        return -1;
    return local::barrierQueueOf(path, file);
}

namespace libcommon {

QueuesOfPlayer sealAnnouncements() {
    QueuesOfPlayer queues;
    local::RunId record;
    if (local::readRunId(local::eventQueueName, record))
        queues.events = record.id;
    queues.barrier = getBarrierIPC(getpid());
    // Below all programs and libraries: whatever range begins before its end is refused by the filter, so that no range
    // can reach it from below.
    constexpr std::uintptr_t place = 0x100000;
    constexpr std::size_t size = 4096;
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE;
    void* wanted =
        reinterpret_cast<void*>(place); // NOLINT(performance-no-int-to-ptr): an address of our choice
    void* page = mmap(wanted, size, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (page == MAP_FAILED)
        return queues;
    if (page != wanted) { // a kernel that does not know the flag
        munmap(page, size);
        return queues;
    }
    constexpr std::size_t apart = 64;
    for (int barrier = 0; barrier < 2; ++barrier)
        queues.announcements.at(static_cast<std::size_t>(barrier)) = local::sealAnnouncement(
            barrier, static_cast<char*>(page) + apart * static_cast<std::size_t>(barrier));
    mprotect(page, size, PROT_READ);
    queues.lowestMemoryEnd = place + size;
    return queues;
}

int announceBarrier(int barrierId) {
    Event event{};
    event.id = EID_BARRIER;
    event.value1 = getpid();
    event.value2 = barrierId;
    constexpr int triesBeforeLog = 100; // a second
    for (int tries = 1; sendEvent(&event) != 0; ++tries) {
        const timespec pause{.tv_sec = 0, .tv_nsec = 10'000'000};
        if (errno != EAGAIN || nanosleep(&pause, nullptr) != 0)
            return -1;
        if (tries == triesBeforeLog)
            logmsg(3, "The event queue is full; the announcement at barrier %d waits for room in it.",
                   barrierId);
    }
    return 0;
}

int awaitBarrierRelease(int barrierId) {
    return receiveRelease(barrierId, 0);
}

int pollBarrierRelease(int barrierId) {
    return receiveRelease(barrierId, IPC_NOWAIT);
}

} // namespace libcommon
