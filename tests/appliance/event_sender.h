// Sends events to a supervisor as a badly behaved program would: directly into its queue.
#pragma once

#include "tests/appliance/appliance.h"

#include <atomic>
#include <thread>

namespace appliance {

// The supervisor's event queue; -1 when there is none.
int eventQueue(const Appliance& decoder);

// Puts one event into the queue without waiting. False when it is full or gone.
bool sendRaw(int queue, int id, int value1 = 0, int value2 = 0);

// Sends the same event again and again until it is destroyed, for at most a minute.
class Flood {
public:
    Flood(const Appliance& decoder, int id, int value1, std::chrono::microseconds between);
    ~Flood();
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

    int sent() const { return sent_; }

private:
    std::atomic<bool> over_{false};
    std::atomic<int> sent_{0};
    std::thread thread_;
};

} // namespace appliance
