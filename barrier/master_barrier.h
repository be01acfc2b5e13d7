// The master's side of the rendezvous between the supervisor and its players.
#pragma once

#include <initializer_list>
#include <span>

// Waits until every one of `pids` has announced barrier `barrierId`, then releases them all in ascending pid
// order: 0. Never waits by time: -1 as soon as any child exits (the exit and the arrivals so far are sent
// again, for the state machine and for the next wait), a monitored player announces another barrier or the
// same twice, or the release of any failed. Main thread; blocks in the event queue.
int masterBarrierOf(int barrierId, std::span<const int> pids);

// masterBarrier(1, 2, currentPID, pendingPID): `count` pids follow.
template<class... Pids>
int masterBarrier(int barrierId, [[maybe_unused]] int count, Pids... pids) {
    const std::initializer_list<int> list{static_cast<int>(pids)...};
    return masterBarrierOf(barrierId, {list.begin(), list.size()});
}
