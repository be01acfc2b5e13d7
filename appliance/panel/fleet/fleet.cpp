#include "appliance/panel/fleet/fleet.h"

#include "appliance/mqtt/configuration.h"
#include "appliance/mqtt/decoder_state.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/panel/fleet/fleet_json.h"

#include <libcommon/text.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <random>
#include <utility>

namespace panel {
namespace {

using nlohmann::json;

constexpr int expirySeconds = 10;

std::string randomId() {
    std::random_device device;
    std::string id = "panel-";
    for (int i = 0; i < 4; ++i)
        id += std::to_string(device() % 1'000'000);
    return id;
}

std::string text(const json& value) {
    return value.dump(-1, ' ', false, json::error_handler_t::replace);
}

// The decoder of a topic SITE/NAME/reply; "" for any other topic.
std::string replyingDecoder(const std::string& site, const std::string& topic) {
    const std::string end = "/reply";
    if (!topic.starts_with(site + '/') || !topic.ends_with(end) ||
        topic.size() <= site.size() + 1 + end.size())
        return "";
    return libcommon::printable(topic.substr(site.size() + 1, topic.size() - site.size() - 1 - end.size()));
}

std::string recipient(const FleetCommand& command) {
    return command.group.empty() ? "_all" : "_group/" + command.group;
}

std::string payloadOf(const FleetCommand& command, const std::string& id) {
    json payload{{"source", command.source}, {"id", id}, {"time", mqtt::timeNow()}};
    if (command.word == "alarm")
        payload["text"] = command.text;
    return text(payload);
}

} // namespace

FleetSettings readFleetSettings() {
    const mqtt::Configuration configuration = mqtt::readConfiguration();
    FleetSettings settings{configuration.mistake, configuration.link, configuration.site()};
    settings.link.willTopic.clear(); // decoder-mqtt's
    settings.link.clientId.clear();
    return settings;
}

Fleet::Fleet(std::unique_ptr<Broker> broker, std::function<void(const std::string&)> changed)
    : broker_(std::move(broker)), changed_(std::move(changed)), id_(randomId()) {}

Fleet::~Fleet() = default;

void Fleet::configure(const FleetSettings& settings) {
    if (settings == settings_)
        return;
    settings_ = settings;
    broker_->end();
    view_ = mqtt::FleetView(settings.site);
    while (!waiting_.empty())
        finish(waiting_.begin()->first);
    if (!settings.mistake.empty()) {
        setState(State::None, settings.mistake);
        return;
    }
    setState(State::Connecting, "");
    broker_->begin(settings.link,
                   {[this] { connected(); }, [this](const mqtt::Message& message) { take(message); },
                    [this](const std::string& reason) { lost(reason); }});
}

// Everything that the broker keeps comes before our own message.
void Fleet::connected() {
    view_.forgetPresence();
    for (const std::string& filter : view_.filters())
        broker_->subscribe(filter, mqtt::Link::Old::Sent);
    broker_->subscribe(settings_.site + "/+/sources", mqtt::Link::Old::Sent);
    broker_->subscribe(settings_.site + "/+/reply", mqtt::Link::Old::Left);
    broker_->subscribe(marker(), mqtt::Link::Old::Left);
    broker_->publish(marker(), "", expirySeconds);
}

void Fleet::take(const mqtt::Message& message) {
    if (message.topic == marker()) {
        setState(State::Connected, "");
        return;
    }
    if (const std::string decoder = replyingDecoder(settings_.site, message.topic); !decoder.empty()) {
        takeReply(decoder, message.payload);
        return;
    }
    view_.take(message.topic, message.payload);
    if (state_ == State::Connected)
        tellSoon();
}

void Fleet::lost(const std::string& reason) {
    if (state_ == State::Lost && reason == reason_)
        return;
    setState(State::Lost, reason);
}

void Fleet::setState(State state, const std::string& reason) {
    if (state != state_)
        since_ = mqtt::timeNow();
    state_ = state;
    reason_ = reason;
    tellSoon();
}

json Fleet::now() const {
    static const std::map<State, const char*> names{{State::None, "none"},
                                                    {State::Connecting, "connecting"},
                                                    {State::Connected, "connected"},
                                                    {State::Lost, "lost"}};
    const bool configured = state_ != State::None;
    return {{"broker",
             {{"state", names.at(state_)},
              {"url", configured ? json(settings_.link.broker.text()) : json()},
              {"site", configured ? json(settings_.site) : json()},
              {"reason", reason_.empty() ? json() : json(reason_)},
              {"since", since_ > 0 ? json(since_) : json()}}},
            {"decoders", fleetDecodersJson(view_.decoders())}};
}

void Fleet::requireBroker() const {
    if (state_ == State::None)
        throw Refused("this panel knows no other decoders: " +
                      (reason_.empty() ? std::string("Mqtt.Broker is not set") : reason_));
}

json Fleet::targets() const {
    requireBroker();
    return fleetTargetsJson(view_.decoders(), settings_.site);
}

// ---- Events.

void Fleet::tellSoon() {
    newsWaits_ = true;
    if (pause_ == nullptr)
        pause_ = every(betweenEvents, [this] { tell(); });
}

void Fleet::tell() {
    if (!std::exchange(newsWaits_, false)) {
        pause_.reset();
        return;
    }
    std::string all = text(now());
    if (all == told_)
        return;
    told_ = std::move(all);
    changed_(told_);
}

// ---- Commands.

std::vector<mqtt::FleetDecoder> Fleet::meantBy(const FleetCommand& command) const {
    std::vector<mqtt::FleetDecoder> meant = view_.decoders(command.group, command.decoders);
    for (const std::string& name : command.decoders) {
        if (std::ranges::none_of(meant,
                                 [&](const mqtt::FleetDecoder& decoder) { return decoder.name == name; }))
            throw Refused("there is no decoder " + inQuotes(name));
    }
    if (meant.empty())
        throw Refused(command.group.empty() ? "the broker knows no decoder of this site"
                                            : "there is no decoder in the group " + inQuotes(command.group));
    return meant;
}

void Fleet::command(const FleetCommand& command, Done done) {
    requireBroker();
    if (state_ != State::Connected)
        throw Refused("there is no connection to the broker" + (reason_.empty() ? "" : ": " + reason_));
    if (waiting_.size() >= mostCommands)
        throw Refused("other commands still wait for replies: try again in a moment");
    const std::string id = id_ + '-' + std::to_string(++commands_);
    Waiting& waiting = waiting_[id];
    try {
        waiting.meant = meantBy(command);
    } catch (const Refused&) {
        waiting_.erase(id);
        throw;
    }
    waiting.done = std::move(done);
    for (const mqtt::FleetDecoder& decoder : waiting.meant) {
        if (decoder.online)
            waiting.expected.insert(decoder.name);
    }
    waiting.limit = every(waiting.expected.empty() ? 1 : replyLimit, [this, id] { finish(id); });
    const std::string payload = payloadOf(command, id);
    std::vector<std::string> recipients = command.decoders;
    if (recipients.empty())
        recipients.push_back(recipient(command));
    for (const std::string& whom : recipients)
        broker_->publish(settings_.site + '/' + whom + "/command/" + command.word, payload, expirySeconds);
}

void Fleet::takeReply(const std::string& decoder, const std::string& payload) {
    const json reply = json::parse(payload, nullptr, false);
    if (!reply.is_object() || !reply.contains("id") || !reply["id"].is_string())
        return;
    const std::string id = reply["id"];
    const auto found = waiting_.find(id);
    if (found == waiting_.end())
        return;
    FleetOutcome outcome{decoder, reply.contains("done") && reply["done"] == true, true, ""};
    if (reply.contains("text") && reply["text"].is_string())
        outcome.text = libcommon::printable(reply["text"].get<std::string>());
    found->second.answers[decoder] = outcome;
    found->second.expected.erase(decoder);
    if (found->second.expected.empty())
        finish(id);
}

void Fleet::finish(const std::string& id) {
    const auto node = waiting_.extract(id);
    if (node.empty())
        return;
    const Waiting& waiting = node.mapped();
    std::vector<FleetOutcome> outcomes;
    for (const mqtt::FleetDecoder& decoder : waiting.meant) {
        const auto answer = waiting.answers.find(decoder.name);
        outcomes.push_back(answer != waiting.answers.end()
                               ? answer->second
                               : FleetOutcome{decoder.name, false, decoder.online,
                                              decoder.online ? "no answer" : "offline"});
    }
    waiting.done(outcomes);
}

} // namespace panel
