#include "appliance/mqtt/fleet/fleet.h"

#include "appliance/mqtt/configuration.h"
#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/fleet/fleet_view.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <poll.h>
#include <random>
#include <set>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr std::int64_t gatherLimit = 10'000'000; // microseconds
constexpr std::int64_t replyLimit = 5'000'000;
constexpr int expirySeconds = 10;
constexpr const char* usualSite = "skelmor";

struct Place {
    LinkSettings link;
    std::string site;
};

Place placeOf(const FleetRequest& request) {
    Place place;
    if (request.broker == "own") {
        const Configuration configuration = readConfiguration();
        if (!configuration.mistake.empty()) {
            throw Refused("this decoder has no broker: " + configuration.mistake);
        }
        place = {configuration.link, configuration.site()};
        place.link.willTopic.clear();
        place.link.clientId.clear();
    } else {
        if (const std::string mistake = readBrokerUrl(request.broker, place.link.broker); !mistake.empty()) {
            throw Refused("the broker's URL " + mistake);
        }
        place.link.user = place.link.broker.user;
        place.link.password = place.link.broker.password;
        const std::string& path = place.link.broker.path;
        place.site = path.empty() ? usualSite : path.substr(0, path.find_last_not_of('/') + 1);
    }
    if (!request.caFile.empty()) {
        place.link.caFile = request.caFile;
    }
    if (place.site.find_first_of("+#") != std::string::npos) {
        throw Refused("the site " + inQuotes(place.site) + " has a wildcard");
    }
    return place;
}

std::string randomId() {
    std::random_device device;
    std::string id = "fleet-";
    for (int i = 0; i < 4; ++i) {
        id += std::to_string(device() % 1'000'000);
    }
    return id;
}

class Fleet {
public:
    explicit Fleet(const Place& place) : site_(place.site), view_(place.site), id_(randomId()) {
        connect(place.link);
    }
    ~Fleet() {
        if (link_ != nullptr) {
            link_->end();
        }
    }
    Fleet(const Fleet&) = delete;
    Fleet& operator=(const Fleet&) = delete;

    // Receives what the broker keeps. It sends our own message behind it.
    void gather() {
        const std::string marker = site_ + "/_fleet/" + id_;
        for (const std::string& filter : view_.filters()) {
            link_->subscribe(filter, 1, Link::Old::Sent);
        }
        link_->subscribe(site_ + "/+/reply", 2, Link::Old::Left);
        link_->subscribe(marker, 3, Link::Old::Left);
        link_->publish(marker, "", false);
        bool complete = false;
        receiveUntil([&](const Message& message) { complete = complete || message.topic == marker; },
                     [&] { return complete; }, gatherLimit);
        if (!complete) {
            throw Refused(link_->reason().empty() ? "the broker does not send what it keeps"
                                                  : link_->reason());
        }
    }

    const FleetView& view() const { return view_; }

    // Sends a command, and waits until all `expected` decoders have answered, for a limited time. Decoder to its reply.
    std::map<std::string, json> command(const FleetRequest& request, const std::set<std::string>& expected) {
        json payload{{"source", request.source}, {"id", id_}, {"time", timeNow()}};
        if (request.word == "alarm") {
            payload["text"] = request.text;
        }
        const std::string text = payload.dump(-1, ' ', false, json::error_handler_t::replace);
        for (const std::string& whom : recipients(request)) {
            link_->publish(site_ + '/' + whom + "/command/" + request.word, text, false, expirySeconds);
        }
        std::map<std::string, json> replies;
        receiveUntil([&](const Message& message) { takeReply(message, replies); },
                     [&] {
                         return std::ranges::all_of(
                             expected, [&](const std::string& name) { return replies.contains(name); });
                     },
                     replyLimit);
        return replies;
    }

private:
    void connect(LinkSettings settings) {
        do {
            link_ = std::make_unique<Link>(settings);
            link_->start();
            receiveUntil([](const Message&) {}, [&] { return link_->state() != Link::State::Connecting; },
                         2 * Link::attemptLimit * std::int64_t{1000});
        } while (link_->needsOlderVersion() && std::exchange(settings.version5, false));
        if (link_->state() != Link::State::Connected) {
            throw Refused(settings.broker.text() + ": " + link_->reason());
        }
    }

    template<class Take, class Done>
    void receiveUntil(Take take, Done done, std::int64_t limit) {
        const std::int64_t until = gettimeusec() + limit;
        while (!done() && link_->state() != Link::State::Lost && gettimeusec() < until) {
            pollfd socket{link_->socket(), link_->events(), 0};
            poll(&socket, 1, 100);
            link_->serve(socket.revents);
            for (const Message& message : link_->takeMessages()) {
                view_.take(message.topic, message.payload);
                take(message);
            }
        }
    }

    static std::vector<std::string> recipients(const FleetRequest& request) {
        if (!request.decoders.empty()) {
            return request.decoders;
        }
        return {request.group.empty() ? "_all" : "_group/" + request.group};
    }

    void takeReply(const Message& message, std::map<std::string, json>& replies) const {
        const std::size_t end =
            message.topic.size() - std::min(message.topic.size(), std::string("/reply").size());
        if (!message.topic.ends_with("/reply") || end <= site_.size() + 1) {
            return;
        }
        const json reply = json::parse(message.payload, nullptr, false);
        const auto id = reply.is_object() ? reply.find("id") : reply.end();
        if (reply.is_object() && id != reply.end() && *id == id_) {
            replies[libcommon::printable(message.topic.substr(site_.size() + 1, end - site_.size() - 1))] =
                reply;
        }
    }

    std::string site_;
    FleetView view_;
    std::string id_;
    std::unique_ptr<Link> link_;
};

struct Outcome {
    std::string name;
    bool done = false;
    bool counts = true; // its failure is a failure of the command
    std::string text;
};

Outcome outcomeOf(const FleetDecoder& decoder, const std::map<std::string, json>& replies) {
    const auto found = replies.find(decoder.name);
    if (found == replies.end()) {
        return {decoder.name, false, decoder.online, decoder.online ? "no answer" : "offline"};
    }
    const auto done = found->second.find("done");
    const auto text = found->second.find("text");
    return {decoder.name, done != found->second.end() && *done == true, true,
            text != found->second.end() && text->is_string() ? libcommon::printable(text->get<std::string>())
                                                             : ""};
}

void print(const std::vector<Outcome>& outcomes, bool asJson, std::ostream& out) {
    if (asJson) {
        json list = json::array();
        for (const Outcome& outcome : outcomes) {
            list.push_back({{"name", outcome.name}, {"done", outcome.done}, {"text", outcome.text}});
        }
        out << list.dump(4) << '\n';
        return;
    }
    for (const Outcome& outcome : outcomes) {
        out << outcome.name << ": " << outcome.text << '\n';
    }
    const auto done = std::ranges::count_if(outcomes, &Outcome::done);
    out << done << " of " << outcomes.size() << (outcomes.size() == 1 ? " decoder\n" : " decoders\n");
}

void requireKnown(const FleetRequest& request, const std::vector<FleetDecoder>& meant) {
    for (const std::string& name : request.decoders) {
        if (std::ranges::none_of(meant, [&](const FleetDecoder& decoder) { return decoder.name == name; })) {
            throw Refused("there is no decoder " + inQuotes(name));
        }
    }
    if (meant.empty()) {
        throw Refused(request.group.empty() ? "the broker knows no decoder of this site"
                                            : "there is no decoder in the group " + inQuotes(request.group));
    }
}

} // namespace

int runFleet(const FleetRequest& request, std::ostream& out) {
    Fleet fleet(placeOf(request));
    fleet.gather();
    const std::vector<FleetDecoder> meant = fleet.view().decoders(request.group, request.decoders);
    requireKnown(request, meant);
    if (request.word == "status") {
        out << (request.json ? fleetJson(meant).dump(4) + '\n' : fleetText(meant));
        return 0;
    }
    std::set<std::string> expected;
    for (const FleetDecoder& decoder : meant) {
        if (decoder.online) {
            expected.insert(decoder.name);
        }
    }
    const std::map<std::string, json> replies = fleet.command(request, expected);
    std::vector<Outcome> outcomes;
    for (const FleetDecoder& decoder : meant) {
        outcomes.push_back(outcomeOf(decoder, replies));
    }
    print(outcomes, request.json, out);
    const bool failed =
        std::ranges::any_of(outcomes, [](const Outcome& outcome) { return !outcome.done && outcome.counts; });
    return failed || std::ranges::none_of(outcomes, &Outcome::done) ? 1 : 0;
}

} // namespace mqtt
