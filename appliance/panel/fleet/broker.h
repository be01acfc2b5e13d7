// A connection to the broker that heals itself, as the fleet needs it. Main loop's thread.
#pragma once

#include "appliance/mqtt/link/link.h"

#include <functional>
#include <string>

namespace panel {

struct BrokerNews {
    std::function<void()> connected;
    std::function<void(const mqtt::Message&)> message;
    std::function<void(const std::string& reason)> lost; // also an attempt that failed; it is tried again
};

class Broker {
public:
    virtual ~Broker() = default;

    // Connects, and again whenever the connection is lost, until end(). Ends what was before.
    virtual void begin(const mqtt::LinkSettings& settings, BrokerNews news) = 0;
    virtual void end() = 0;

    // These do nothing while there is no connection.
    virtual void subscribe(const std::string& filter, mqtt::Link::Old old) = 0;
    virtual void publish(const std::string& topic, const std::string& payload, int expirySeconds) = 0;
};

} // namespace panel
