#include "libcommon/src/event_queue_id.h"

#include "libcommon/src/system_v.h"

#include <libcommon/log.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/ipc.h>
#include <unistd.h>

namespace local {

namespace {

bool prepareQueue(RunId& record) {
    msqid_ds queue{};
    if (msgctl(record.id, IPC_STAT, &queue) != 0)
        return false;
    record.stamp = queue.msg_ctime;
    return true;
}

constexpr SystemVObject queueObject{
    .name = eventQueueName,
    .make = [](key_t key) { return msgget(key, IPC_CREAT | IPC_EXCL | 0660); },
    .find = [](key_t key) { return msgget(key, 0); },
    .prepare = prepareQueue,
    .remove = [](int id) { return msgctl(id, IPC_RMID, nullptr); },
};

} // namespace

bool lookAtEventQueue(const RunId& record, msqid_ds& queue) {
    if (msgctl(record.id, IPC_STAT, &queue) != 0) {
        if (errno == EINVAL || errno == EIDRM)
            errno = ENOENT;
        return false;
    }
    if (isOurKey(queue.msg_perm.__key) && queue.msg_ctime == record.stamp)
        return true;
    errno = ENOENT;
    return false;
}

bool ownerLives(const RunId& record) {
    return record.pid > 0 && (kill(record.pid, 0) == 0 || errno == EPERM);
}

bool attachEventQueue(RunId& record) {
    const RunIdLock lock(eventQueueName);
    msqid_ds queue{};
    if (!lock)
        return false;
    const bool found = readRunId(eventQueueName, record) && lookAtEventQueue(record, queue) &&
                       queue.msg_perm.cuid == geteuid();
    if (!found)
        return makeRecorded(queueObject, record);
    removeUnrecorded(queueObject); // a failure leaves the note for the next time
    record.pid = getpid();
    return writeRunId(eventQueueName, record);
}

int restoreEventQueueRecord(int queue) {
    RunId record;
    if (readRunId(eventQueueName, record) && record.id == queue)
        return 0;
    const RunIdLock lock(eventQueueName);
    record = {.id = queue, .pid = getpid(), .stamp = 0};
    return lock && prepareQueue(record) && writeRunId(eventQueueName, record) ? 1 : -1;
}

int removeLeftEventQueue() {
    RunId record;
    msqid_ds queue{};
    if (!readRunId(eventQueueName, record) && !hasNote(queueObject))
        return 0;
    const RunIdLock lock(eventQueueName);
    const int unrecorded = lock ? removeUnrecorded(queueObject) : -1;
    const bool found = lock && readRunId(eventQueueName, record) && lookAtEventQueue(record, queue);
    const bool gone = lock && (found ? msgctl(record.id, IPC_RMID, nullptr) == 0 : errno == ENOENT);
    if (!gone || unrecorded < 0) {
        logmsg(3, "Failed to remove the event queue. (errno=%d %s)", errno, std::strerror(errno));
        return -1;
    }
    removeRunId(eventQueueName);
    return unrecorded + (found ? 1 : 0);
}

} // namespace local
