#include <libcommon/semaphores.h>

#include "libcommon/src/files.h"
#include "libcommon/src/run_id.h"
#include "libcommon/src/semaphore_set.h"
#include "libcommon/src/system_v.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <unistd.h>

namespace {

constexpr const char* setName = "semaphores";
constexpr int firstSemaphore = 2000;
constexpr int semaphoreCount = 32;
constexpr int maximumValue = 32767;

// The caller of semctl() has to declare it.
union Argument {
    int value;
    semid_ds* state;
    unsigned short* values;
};

// The identifier of the appliance's set; -1: this process does not know it yet. Any thread; children inherit it.
std::atomic<int> knownSet{-1};

// The kernel's name of this start of the machine into `text`; its length, 0 where there is no /proc, -1 with errno. It is
// asked again, because a moment without a free descriptor must not make the set another machine's: nobody would remove it.
ssize_t readMachineStart(char* text, std::size_t size) {
    constexpr int tries = 3;
    ssize_t length = -1;
    for (int i = 0; i < tries && length < 0; ++i) {
        const local::Descriptor fd(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
        if (!fd && errno == ENOENT)
            return 0;
        length = fd ? read(fd.get(), text, size) : -1;
    }
    return length;
}

// Differs from one start of the machine to the next; -1 with errno when it can't be found out.
std::int64_t machineStart() {
    char text[64];
    const ssize_t length = readMachineStart(text, sizeof text);
    if (length < 0)
        return -1;
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (ssize_t i = 0; i < length; ++i)
        hash = (hash ^ static_cast<unsigned char>(text[i])) * 0x100000001b3U;
    return static_cast<std::int64_t>(hash >> 1U);
}

// Whether the record names our set. False with errno EINVAL: it does not exist.
bool isOurs(const local::RunId& record) {
    semid_ds state{};
    Argument argument{.state = &state};
    if (semctl(record.id, 0, IPC_STAT, argument) != 0) {
        if (errno == EIDRM)
            errno = EINVAL;
        return false;
    }
    const std::int64_t start = machineStart();
    if (start < 0)
        return false;
    const bool ours =
        record.stamp == start && local::isOurKey(state.sem_perm.__key) && state.sem_nsems == semaphoreCount;
    if (!ours)
        errno = EINVAL;
    return ours;
}

bool prepareSet(local::RunId& record) {
    unsigned short zeros[semaphoreCount] = {};
    record.stamp = machineStart();
    return record.stamp >= 0 && semctl(record.id, 0, SETALL, Argument{.values = zeros}) == 0;
}

constexpr local::SystemVObject setObject{
    .name = setName,
    .make = [](key_t key) { return semget(key, semaphoreCount, IPC_CREAT | IPC_EXCL | 0660); },
    .find = [](key_t key) { return semget(key, 0, 0); },
    .prepare = prepareSet,
    .remove = [](int id) { return semctl(id, 0, IPC_RMID); },
};

// The appliance's set; the first process that needs it makes it, under the lock. -1 with errno.
int findSet() {
    if (const int set = knownSet; set >= 0)
        return set;
    libcommon::applianceRoot();
    const local::RunIdLock lock(setName);
    if (!lock)
        return -1;
    local::RunId record;
    int set = -1;
    if (local::readRunId(setName, record) && isOurs(record))
        set = record.id;
    else if (errno == ENOENT || errno == EINVAL)
        set = local::makeRecorded(setObject, record) ? record.id : -1;
    knownSet = set;
    return set;
}

// Runs `act` on the set and the semaphore's place in it. When the set is gone, because the appliance was taken down and
// started again, finds the new set and runs `act` once more. 0, or -1 with a log line.
template<class Act>
int onSemaphore(const char* what, int id, Act act) {
    if (id < firstSemaphore || id >= firstSemaphore + semaphoreCount) {
        logmsg(3, "Failed to %s semaphore %d: there is none of that number.", what, id);
        return -1;
    }
    int result = -1;
    for (int i = 0; i < 2 && result == -1; ++i) {
        const int set = findSet();
        result = set < 0 ? -1 : act(set, static_cast<unsigned short>(id - firstSemaphore));
        if (result == 0 || set < 0)
            break;
        if (errno == EINVAL || errno == EIDRM)
            knownSet = -1;
        if (errno != EINVAL)
            break;
    }
    if (result != 0)
        logmsg(3, "Failed to %s semaphore %d. (errno=%d %s)", what, id, errno, std::strerror(errno));
    return result == 0 ? 0 : -1;
}

int setValue(int set, unsigned short number, int value) {
    Argument argument{.value = value};
    return semctl(set, number, SETVAL, argument);
}

int change(int set, unsigned short number, short by) {
    sembuf operation{.sem_num = number, .sem_op = by, .sem_flg = 0};
    int result = 0;
    do {
        result = semop(set, &operation, 1);
    } while (result != 0 && errno == EINTR);
    return result;
}

} // namespace

int semaphoreInit(int id) {
    return onSemaphore("make", id, [](int set, unsigned short number) { return setValue(set, number, 0); });
}

int semaphoreSet(int id, int value) {
    if (value < 0 || value > maximumValue) {
        logmsg(3, "Failed to set semaphore %d: it can't have the value %d.", id, value);
        return -1;
    }
    return onSemaphore("set", id,
                       [value](int set, unsigned short number) { return setValue(set, number, value); });
}

int semaphoreIncrease(int id) {
    return onSemaphore("increase", id, [](int set, unsigned short number) { return change(set, number, 1); });
}

int semaphoreDecrease(int id) {
    return onSemaphore("decrease", id,
                       [](int set, unsigned short number) { return change(set, number, -1); });
}

namespace local {

int removeSemaphoreSet() {
    RunId record;
    if (!readRunId(setName, record) && !hasNote(setObject))
        return 0;
    const RunIdLock lock(setName);
    const int unrecorded = lock ? removeUnrecorded(setObject) : -1;
    const bool found = lock && readRunId(setName, record) && isOurs(record);
    const bool gone =
        lock && (found ? semctl(record.id, 0, IPC_RMID) == 0 : errno == EINVAL || errno == ENOENT);
    knownSet = -1;
    if (!gone || unrecorded < 0) {
        logmsg(3, "Failed to remove the semaphores. (errno=%d %s)", errno, std::strerror(errno));
        return -1;
    }
    removeRunId(setName);
    return unrecorded + (found ? 1 : 0);
}

} // namespace local
