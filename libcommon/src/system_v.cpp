#include "libcommon/src/system_v.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <sys/random.h>
#include <unistd.h>

namespace local {

namespace {

struct NoteName {
    char text[32];
    explicit NoteName(const SystemVObject& object) {
        std::snprintf(text, sizeof text, "%s.making", object.name);
    }
};

// A key without an object. 0 with errno.
key_t freeKey(const SystemVObject& object) {
    constexpr int tries = 8;
    for (int i = 0; i < tries; ++i) {
        std::uint32_t random = 0;
        if (getrandom(&random, sizeof random, GRND_NONBLOCK) != sizeof random)
            return 0;
        const auto key = static_cast<key_t>(random & 0x7fffffffU);
        if (isOurKey(key) && object.find(key) < 0 && errno == ENOENT)
            return key;
    }
    errno = EEXIST;
    return 0;
}

// A program that forgets to fill in an identifier uses 0, which is the first object of the machine: it removes that
// object or sends messages to it. So the object with identifier 0 is never ours. After its removal its place gets
// another identifier.
int makeNotFirst(const SystemVObject& object, key_t key) {
    const int first = object.make(key);
    if (first != 0)
        return first;
    return object.remove(first) == 0 ? object.make(key) : -1;
}

} // namespace

bool isOurKey(key_t key) {
    return key > 0xffffff;
}

bool makeRecorded(const SystemVObject& object, RunId& record) {
    const NoteName note(object);
    removeUnrecorded(object); // another user's can't be removed; that must not keep this one from being made
    const key_t key = freeKey(object);
    if (key == 0 || !writeRunId(note.text, {.id = key, .pid = getpid(), .stamp = 0}))
        return false;
    record.pid = getpid();
    record.id = makeNotFirst(object, key);
    if (record.id >= 0 && object.prepare(record) && writeRunId(object.name, record)) {
        removeRunId(note.text);
        return true;
    }
    const ErrnoKept errnoKept;
    if (record.id >= 0)
        object.remove(record.id);
    removeRunId(note.text);
    return false;
}

int removeUnrecorded(const SystemVObject& object) {
    const NoteName note(object);
    RunId made;
    RunId recorded;
    if (!readRunId(note.text, made)) {
        removeRunId(note.text);
        return 0;
    }
    const int id = isOurKey(made.id) ? object.find(made.id) : -1;
    // The maker may have been killed after it had recorded the object.
    const bool lost = id >= 0 && (!readRunId(object.name, recorded) || recorded.id != id);
    if (lost && object.remove(id) != 0)
        return -1;
    removeRunId(note.text);
    return lost ? 1 : 0;
}

bool hasNote(const SystemVObject& object) {
    RunId made;
    return readRunId(NoteName(object).text, made);
}

} // namespace local
