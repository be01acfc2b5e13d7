// The player's side of the meetings with the supervisor.
//
// A thread of its own announces and waits, because a release must be acted upon in the moment it comes,
// whatever the rest of the player is doing. Barrier 0: the first picture is decoded. Barrier 1, first time:
// ready to show; its release is the word to take the screen over. Barrier 1, second time: asked to leave,
// still showing; its release is the word to stop.
#pragma once

#include <functional>

namespace player {

struct LinkActions {
    std::function<void()> show;               // take the screen over, now
    std::function<void()> beforeLeaving;      // asked to leave: called before that is announced
    std::function<void()> stop;               // stop showing, now
    std::function<void(bool released)> ended; // released: the player has left; else the supervisor is gone
};

class SupervisorLink {
public:
    explicit SupervisorLink(LinkActions actions);
    ~SupervisorLink() = default;
    SupervisorLink(const SupervisorLink&) = delete;
    SupervisorLink& operator=(const SupervisorLink&) = delete;

    // Begins the meetings; the actions are called on the link's thread from now on. Once.
    void start();

    // Asks the player to leave; when it is not showing yet, it leaves after it was let show. Any thread, any
    // number of times.
    void leave();

private:
    struct State;
    State& state_; // never destroyed: its thread may run while the process exits
};

} // namespace player
