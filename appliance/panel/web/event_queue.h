// The events that wait for one listener.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace panel {

class EventQueue {
public:
    explicit EventQueue(std::size_t mostQueued) : mostQueued_(mostQueued) {}

    // Adds an event. It replaces one of the same type that still waits; "change" and "journal" wait in order instead,
    // and the oldest is dropped when there are too many.
    void add(std::string_view type, std::string_view json);

    // The next event as it is sent, "" when nothing waits.
    std::string take();

    std::size_t bytes() const { return bytes_; }
    bool empty() const { return waiting_.empty(); }

private:
    struct Waiting {
        std::string type;
        std::string text;
    };
    void drop(std::deque<Waiting>::iterator which);
    void makeRoom(std::string_view type);

    std::size_t mostQueued_;
    std::size_t bytes_ = 0;
    std::deque<Waiting> waiting_;
};

} // namespace panel
