// Server-sent events: one long answer for each browser, and what it gets.
//
// publish() gives an event to all listeners. A listener that reads slowly loses old events instead of making anybody
// wait: of each type only the newest waits for it. Events of the types "change" and "journal" wait in order, at most
// `mostQueued` of them, and the oldest are dropped. A listener that takes nothing for `longestStall` seconds is cut. Main
// loop's thread only.
#pragma once

#include "appliance/panel/web/request.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace panel {

class EventListener;

struct Event {
    std::string type; // "status"
    std::string json; // one JSON value without line breaks
};

// Who listens.
struct ListenerInfo {
    Role role = Role::None;
    std::string account;
    std::string session; // "" of a token
};

struct StreamLimits {
    std::size_t mostListeners = 256;
    std::size_t mostQueued = 100;              // events of "change" and "journal", for each listener
    std::size_t mostWaiting = 2 * 1024 * 1024; // bytes, for each listener; a listener above it is cut
    unsigned longestStall = 30;                // seconds
    unsigned beatEvery = 15; // seconds between events "beat", which show that the connection lives
};

class EventStreams {
public:
    explicit EventStreams(const StreamLimits& limits = {});
    ~EventStreams();
    EventStreams(const EventStreams&) = delete;
    EventStreams& operator=(const EventStreams&) = delete;

    // Sends an event to the listeners that have this role.
    void publish(std::string_view type, std::string json, Role least = Role::Viewer);

    // What a new listener gets first, in this order.
    using First = std::function<std::vector<Event>(const ListenerInfo&)>;
    void setFirst(First first);

    // Called after the number of listeners has changed, to begin and end work that only listeners need.
    void onCount(std::function<void(std::size_t)> changed);
    std::size_t count() const;
    const StreamLimits& limits() const;

    // For the server: takes a listener, drops one.
    void add(std::shared_ptr<EventListener> listener);
    void remove(const EventListener* listener);
    // Tells the listeners of a session that it is over, and ends them.
    void endSession(std::string_view session);
    void endAll();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace panel
