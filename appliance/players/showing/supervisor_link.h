// The player's side of the barriers.
//
// A separate thread announces the player and waits for the release, because a release must take effect at once,
// whatever the rest of the player is doing. Barrier 0: the first picture is decoded. Barrier 1, first time: ready to
// show; the release tells the player to take the screen over. Barrier 1, second time: asked to leave, still showing;
// the release tells it to stop.
#pragma once

#include <cstdint>
#include <functional>

namespace player {

// Called on the link's thread.
struct LinkActions {
    std::function<void()> show;          // take the screen over
    std::function<void()> beforeLeaving; // asked to leave; called before that is announced
    std::function<void()> stop;          // stop showing
    // Since when the player has been waiting for a release (gettimeusec()'s clock); 0: it no longer waits.
    std::function<void(std::int64_t since)> waiting;
    std::function<void(bool released)> ended; // true: the player may go; false: the supervisor is gone
};

class SupervisorLink {
public:
    explicit SupervisorLink(LinkActions actions);
    ~SupervisorLink() = default;
    SupervisorLink(const SupervisorLink&) = delete;
    SupervisorLink& operator=(const SupervisorLink&) = delete;

    // Starts the thread, which announces barrier 0. Called once.
    void start();

    // Asks the player to leave. A player that does not show yet leaves after it was released to show. Any
    // thread, any number of times.
    void leave();

private:
    struct State;
    State& state_; // never destroyed: its thread may run while the process exits
};

} // namespace player
