// A client of the broker that remembers all messages. One thread: messages arrive while the test waits for them.
#pragma once

#include "appliance/mqtt/link/link.h"
#include "tests/appliance/process.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace mqtt_test {

class Listener {
public:
    // Connects and subscribes to everything. Throws when the broker does not take it.
    explicit Listener(const mqtt::LinkSettings& settings);
    explicit Listener(const std::string& url);

    // The newest payload of a topic; "" for none.
    std::string newest(const std::string& topic) const;
    nlohmann::json json(const std::string& topic) const; // null for none
    const std::vector<mqtt::Message>& messages() const { return messages_; }
    std::size_t count(const std::string& topic) const;
    void forget() { messages_.clear(); }

    // Receives until the condition is true or the time is over; returns its last value.
    bool waitFor(const std::function<bool()>& condition, appliance::Seconds limit = appliance::patience);
    bool waitForPayload(const std::string& topic, const std::string& payload,
                        appliance::Seconds limit = appliance::patience);
    // A newest JSON object of the topic with this value of the key.
    bool waitForValue(const std::string& topic, const std::string& key, const nlohmann::json& value,
                      appliance::Seconds limit = appliance::patience);

    void publish(const std::string& topic, const std::string& payload, bool retain = false);
    // Publishes a command to a decoder, and returns its reply.
    nlohmann::json command(const std::string& decoder, const std::string& word, const std::string& payload);

    bool connected() const { return link_->state() == mqtt::Link::State::Connected; }
    mqtt::Link& link() { return *link_; }
    void receive(int milliseconds);

private:
    std::unique_ptr<mqtt::Link> link_;
    std::vector<mqtt::Message> messages_;
    std::map<std::string, std::string> newest_;
};

} // namespace mqtt_test
