// A value that is made at its first use and then stays.
//
// It is not a static in a function: while one thread makes such a static another may fork, and the child would wait
// forever for a thread that it does not have. Here two threads may both make the value; one of the two values is
// deleted. The value is never destroyed, because threads still use it while the process exits. Reading is safe in a
// signal handler.
#pragma once

#include <atomic>

namespace local {

template<class Value>
class MadeOnce {
public:
    constexpr MadeOnce() = default;
    MadeOnce(const MadeOnce&) = delete;
    MadeOnce& operator=(const MadeOnce&) = delete;

    // The value; `make` returns a new one.
    template<class Make>
    const Value& get(Make make) {
        if (const Value* made = value_)
            return *made;
        const Value* mine = make();
        const Value* first = nullptr;
        if (value_.compare_exchange_strong(first, mine))
            return *mine;
        delete mine;
        return *first;
    }

    // nullptr: not made yet.
    const Value* peek() const { return value_; }

private:
    std::atomic<const Value*> value_{nullptr};
};

} // namespace local
