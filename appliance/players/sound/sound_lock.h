// The lock of the sound: of all players of an appliance, one at a time has the sound device.
//
// The file /run/decoder/sound.lock below the appliance root. The kernel releases the lock when its holder dies. For one
// thread at a time.
#pragma once

namespace player {

class SoundLock {
public:
    SoundLock() = default;
    SoundLock(const SoundLock&) = delete;
    SoundLock& operator=(const SoundLock&) = delete;
    ~SoundLock() { release(); }

    // Takes the lock; true also when it is held already. False at once when another player has it, or, with a log line
    // the first time, when the file can't be used.
    bool take();

    void release();

private:
    int fd_ = -1;
    bool reported_ = false;
};

} // namespace player
