// A player's barrier, where the player waits until the supervisor releases it.
//
// Each player has a barrier of its own, made by the supervisor right after the fork: the file
// /var/tmp/barrier.PID below the appliance root and the System V message queue of ftok(file, 0). A player
// announces that it has reached barrier N with EID_BARRIER and then waits on its queue for the release: a
// message of type 7 whose text begins with the supervisor's pid and the barrier's number.
#pragma once

#include <array>
#include <cstdint>

// The message queue of the barrier of that pid, or -1 when it has none. Only a regular file has one, never a link.
// Any thread; safe in a signal handler.
int getBarrierIPC(int pid);

namespace libcommon {

struct BarrierRelease {
    long type; // 7
    std::int32_t supervisorPid;
    std::int32_t barrierId;
    std::int32_t unused[11];
};

// Announces this process at the barrier. Tries again while the event queue is full; that is logged after a second. 0;
// -1 with errno: ENOENT no supervisor runs, EPERM this process has no barrier, EINTR a signal was handled while the
// queue was full (call again).
int announceBarrier(int barrierId);

// All that a player needs of the message queues, for a filter of its system calls.
struct QueuesOfPlayer {
    int events = -1;  // the appliance's event queue; -1: none, nothing can be announced
    int barrier = -1; // the player's own barrier; -1: none
    // The announcements at barriers 0 and 1 as msgsnd() gets them, and the end of the lowest memory, in which they are.
    // Null and 0: they could not be put there.
    std::array<const void*, 2> announcements{};
    std::uintptr_t lowestMemoryEnd = 0;
};

// Puts this process's two announcements into a page of their own that can only be read. From then on announceBarrier()
// sends exactly these. A filter that allows only these addresses, and no change of memory below `lowestMemoryEnd`, keeps
// whoever takes the process over from sending anything else. Called once, before other threads exist.
QueuesOfPlayer sealAnnouncements();

// Waits for the release of this process from the barrier: 0; -1 with errno EINTR after a signal was handled
// (call again), EIDRM or ENOENT when the barrier is gone, EPROTO after a release of another barrier.
int awaitBarrierRelease(int barrierId);

// The same without waiting: -1 with errno EAGAIN when no release is there yet.
int pollBarrierRelease(int barrierId);

} // namespace libcommon
