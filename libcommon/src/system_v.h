// Making System V objects so that a kill at any moment leaves none that can't be found.
//
// An object of IPC_PRIVATE that is made and not yet recorded is lost when its maker is killed: nothing shows whose it
// is. So the maker first writes down a random key ("events.making.id" in the run directory), makes the object with that
// key, records its identifier ("events.id") and removes the note. The next process that makes or removes the object
// looks at the note first. A key is one of 2^31 and was free when the note was written, so a note never names another
// root's object.
//
// All of this is done under the RunIdLock of the name. Nothing allocates or logs; safe between fork and exec.
#pragma once

#include "libcommon/src/run_id.h"

#include <sys/ipc.h>

namespace local {

// One kind of object: the appliance has one of each.
struct SystemVObject {
    const char* name;       // of the file that records it
    int (*make)(key_t key); // only where there is none with that key: the identifier, or -1 with errno
    int (*find)(key_t key); // the identifier, or -1 with errno
    bool (*prepare)(RunId& record); // fills in the stamp of a new object; false with errno
    int (*remove)(int id);          // 0, or -1 with errno
};

// Whether a key is one that was made here. Barriers have keys with a zero in the highest byte.
bool isOurKey(key_t key);

// Makes the object and records it for this process. False with errno; then there is none.
bool makeRecorded(const SystemVObject& object, RunId& record);

// Removes an object that was made but not recorded, and the note. 1 when there was one, 0 when not, -1 with errno.
int removeUnrecorded(const SystemVObject& object);

// Whether there is a note.
bool hasNote(const SystemVObject& object);

} // namespace local
