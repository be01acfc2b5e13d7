#include "appliance/mqtt/fleet/fleet_view.h"

#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <ctime>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr std::size_t longestPayload = 65536;
constexpr std::size_t longestPanel = 300;
constexpr std::size_t mostDecoders = 2000;
constexpr std::size_t mostSources = 100; // of one decoder

// The value of a key if it has this type; otherwise an empty one. Anybody may publish anything.
std::string textAt(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_string() ? libcommon::printable(found->get<std::string>()) : "";
}

bool flagAt(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

double numberAt(const json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_number() ? found->get<double>() : 0;
}

const json& objectAt(const json& object, const char* key) {
    static const json none = json::object();
    const auto found = object.find(key);
    return found != object.end() && found->is_object() ? *found : none;
}

void takeState(const json& state, FleetDecoder& decoder) {
    decoder.mode = textAt(state, "mode");
    decoder.running = flagAt(state, "running");
    decoder.connected = flagAt(state, "connected");
    const json& source = objectAt(state, "source");
    decoder.source = source.empty()
                         ? ""
                         : std::to_string(std::lround(std::clamp(numberAt(source, "index"), -1.0, 1e6))) +
                               ' ' + textAt(source, "name");
    decoder.sourceName = textAt(source, "name");
    decoder.errorCode = textAt(objectAt(state, "error"), "code");
    decoder.error = textAt(objectAt(state, "error"), "text");
    decoder.alarm = textAt(objectAt(state, "alarm"), "text");
    decoder.groups.clear();
    if (const auto groups = state.find("groups"); groups != state.end() && groups->is_array()) {
        for (const json& group : *groups) {
            if (group.is_string()) {
                decoder.groups.push_back(libcommon::printable(group.get<std::string>()));
            }
        }
    }
}

// An address that a browser can open and nothing else: people click on it.
std::string panelAt(const json& presence) {
    const std::string panel = textAt(presence, "panel");
    const std::size_t scheme = panel.starts_with("http://") ? 7 : panel.starts_with("https://") ? 8 : 0;
    const bool good =
        scheme != 0 && panel.size() > scheme && panel.size() <= longestPanel &&
        std::all_of(panel.begin() + static_cast<std::ptrdiff_t>(scheme), panel.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                   std::string_view(".-:[]").find(c) != std::string_view::npos;
        });
    return good ? panel : "";
}

void takeSources(const json& sources, FleetDecoder& decoder) {
    decoder.sources.clear();
    for (const json& source : sources) {
        if (source.is_object() && decoder.sources.size() < mostSources) {
            decoder.sources.push_back(textAt(source, "name"));
        }
    }
}

void takePresence(const json& presence, FleetDecoder& decoder) {
    decoder.stopped = !flagAt(presence, "online");
    decoder.since = numberAt(presence, "since");
    decoder.seen = numberAt(presence, "time");
    decoder.panel = panelAt(presence);
}

std::string timeText(double seconds) {
    constexpr double latest = 1e11; // anybody may publish any number
    const auto time = static_cast<std::time_t>(std::clamp(seconds, 0.0, latest));
    std::tm local{};
    std::array<char, 32> text{};
    if (seconds <= 0 || seconds > latest || localtime_r(&time, &local) == nullptr) {
        return "";
    }
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
    return text.data();
}

bool isLost(const FleetDecoder& decoder) {
    return !decoder.online && !decoder.stopped;
}

std::string presenceText(const FleetDecoder& decoder) {
    const std::string time = timeText(isLost(decoder) ? decoder.seen : decoder.since);
    if (time.empty()) {
        return decoder.online ? "online" : "offline";
    }
    return (decoder.online    ? "online since "
            : isLost(decoder) ? "lost, last seen "
                              : "offline since ") +
           time;
}

std::string sourceText(const FleetDecoder& decoder) {
    if (!decoder.running) {
        return "no decoder is running";
    }
    return decoder.source.empty() ? "-" : decoder.source;
}

std::size_t characters(const std::string& text) {
    return static_cast<std::size_t>(
        std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

} // namespace

std::vector<std::string> FleetView::filters() const {
    return {site_ + "/+/presence", site_ + "/+/state", site_ + "/+/availability"};
}

void FleetView::forgetPresence() {
    for (auto& [name, decoder] : decoders_) {
        decoder.online = false;
    }
}

void FleetView::take(std::string_view topic, std::string_view payload) {
    if (!topic.starts_with(site_ + '/')) {
        return;
    }
    topic.remove_prefix(site_.size() + 1);
    const std::size_t slash = topic.find('/');
    if (slash == std::string_view::npos || slash == 0 || topic.starts_with('_') ||
        payload.size() > longestPayload) {
        return;
    }
    const std::string name = libcommon::printable(topic.substr(0, slash));
    const std::string_view what = topic.substr(slash + 1);
    if (payload.empty()) {
        if (what == "availability") {
            decoders_.erase(name); // it was removed
        }
        return;
    }
    if (decoders_.size() >= mostDecoders && !decoders_.contains(name)) {
        return;
    }
    if (what == "availability") {
        decoders_[name].online = payload == "online";
        decoders_[name].name = name;
        return;
    }
    const json value = json::parse(payload, nullptr, false);
    if (what == "sources" && value.is_array()) {
        decoders_[name].name = name;
        takeSources(value, decoders_[name]);
        return;
    }
    if (!value.is_object() || (what != "state" && what != "presence")) {
        return;
    }
    FleetDecoder& decoder = decoders_[name];
    decoder.name = name;
    what == "state" ? takeState(value, decoder) : takePresence(value, decoder);
}

std::vector<FleetDecoder> FleetView::decoders() const {
    std::vector<FleetDecoder> all;
    for (const auto& [name, decoder] : decoders_) {
        all.push_back(decoder);
    }
    return all;
}

std::vector<FleetDecoder> FleetView::decoders(const std::string& group,
                                              const std::vector<std::string>& names) const {
    std::vector<FleetDecoder> meant = decoders();
    std::erase_if(meant, [&](const FleetDecoder& decoder) {
        return (!group.empty() && std::ranges::find(decoder.groups, group) == decoder.groups.end()) ||
               (!names.empty() && std::ranges::find(names, decoder.name) == names.end());
    });
    return meant;
}

std::string fleetText(const std::vector<FleetDecoder>& decoders) {
    std::vector<std::array<std::string, 4>> rows{{"decoder", "presence", "source", "error"}};
    for (const FleetDecoder& decoder : decoders) {
        rows.push_back({decoder.name, presenceText(decoder), sourceText(decoder),
                        decoder.errorCode.empty() ? "-" : decoder.errorCode + ' ' + decoder.error});
    }
    std::array<std::size_t, 4> widths{};
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], characters(row[i]));
        }
    }
    std::string text;
    for (const auto& row : rows) {
        for (std::size_t i = 0; i + 1 < row.size(); ++i) {
            text += row[i] + std::string(widths[i] - characters(row[i]) + 2, ' ');
        }
        text += row.back() + '\n';
    }
    return text;
}

json fleetJson(const std::vector<FleetDecoder>& decoders) {
    json list = json::array();
    for (const FleetDecoder& decoder : decoders) {
        list.push_back({{"name", decoder.name},
                        {"online", decoder.online},
                        {"since", decoder.since},
                        {"seen", decoder.seen},
                        {"lost", isLost(decoder)},
                        {"groups", decoder.groups},
                        {"running", decoder.running},
                        {"connected", decoder.connected},
                        {"mode", decoder.mode},
                        {"source", decoder.source},
                        {"errorCode", decoder.errorCode},
                        {"error", decoder.error},
                        {"alarm", decoder.alarm}});
    }
    return list;
}

} // namespace mqtt
