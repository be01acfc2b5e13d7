// The master's side of the rendezvous between the supervisor and its players.
#pragma once

#include <initializer_list>
#include <span>

// Waits until all of `pids` have announced barrier `barrierId`, then releases them in ascending pid order: 0. There
// is no time limit. -1 as soon as any child exits (the exit and the arrivals so far are sent again, for the state
// machine and the next wait), when a monitored player announces another barrier or the same one twice, and when a
// release failed. Main thread; blocks in the event queue, and for a release as long as a living player's queue is
// full, with signals let in.
int masterBarrierOf(int barrierId, std::span<const int> pids);

// masterBarrier(1, 2, currentPID, pendingPID): `count` pids follow.
template<class... Pids>
int masterBarrier(int barrierId, [[maybe_unused]] int count, Pids... pids) {
    const std::initializer_list<int> list{static_cast<int>(pids)...};
    return masterBarrierOf(barrierId, {list.begin(), list.size()});
}
