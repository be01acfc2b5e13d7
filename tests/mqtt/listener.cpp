#include "tests/mqtt/listener.h"

#include <poll.h>
#include <stdexcept>

namespace mqtt_test {
namespace {

mqtt::LinkSettings settingsFor(const std::string& url) {
    mqtt::LinkSettings settings;
    if (const std::string mistake = mqtt::readBrokerUrl(url, settings.broker); !mistake.empty()) {
        throw std::runtime_error(mistake);
    }
    return settings;
}

} // namespace

Listener::Listener(const std::string& url) : Listener(settingsFor(url)) {}

Listener::Listener(const mqtt::LinkSettings& settings) : link_(std::make_unique<mqtt::Link>(settings)) {
    link_->start();
    waitFor([this] { return link_->state() != mqtt::Link::State::Connecting; });
    if (!connected()) {
        throw std::runtime_error("no connection to the broker: " + link_->reason());
    }
    link_->subscribe("#", 1, mqtt::Link::Old::Sent);
}

void Listener::receive(int milliseconds) {
    pollfd socket{link_->socket(), link_->events(), 0};
    poll(&socket, 1, milliseconds);
    link_->serve(socket.revents);
    for (mqtt::Message& message : link_->takeMessages()) {
        newest_[message.topic] = message.payload;
        messages_.push_back(std::move(message));
    }
}

std::string Listener::newest(const std::string& topic) const {
    const auto found = newest_.find(topic);
    return found == newest_.end() ? "" : found->second;
}

nlohmann::json Listener::json(const std::string& topic) const {
    nlohmann::json value = nlohmann::json::parse(newest(topic), nullptr, false);
    return value.is_discarded() ? nlohmann::json() : value;
}

std::size_t Listener::count(const std::string& topic) const {
    return static_cast<std::size_t>(
        std::count_if(messages_.begin(), messages_.end(),
                      [&](const mqtt::Message& message) { return message.topic == topic; }));
}

bool Listener::waitFor(const std::function<bool()>& condition, appliance::Seconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        receive(10);
    }
    return true;
}

bool Listener::waitForPayload(const std::string& topic, const std::string& payload,
                              appliance::Seconds limit) {
    return waitFor([&] { return newest(topic) == payload; }, limit);
}

bool Listener::waitForValue(const std::string& topic, const std::string& key, const nlohmann::json& value,
                            appliance::Seconds limit) {
    return waitFor(
        [&] {
            const nlohmann::json object = json(topic);
            return object.is_object() && object.value(key, nlohmann::json()) == value;
        },
        limit);
}

void Listener::publish(const std::string& topic, const std::string& payload, bool retain) {
    link_->publish(topic, payload, retain);
}

nlohmann::json Listener::command(const std::string& decoder, const std::string& word,
                                 const std::string& payload) {
    const std::size_t before = count(decoder + "/reply");
    publish(decoder + "/command/" + word, payload);
    waitFor([&] { return count(decoder + "/reply") > before; });
    return json(decoder + "/reply");
}

} // namespace mqtt_test
