#include "appliance/mqtt/fuzz/targets.h"

#include "appliance/mqtt/fleet/fleet_view.h"
#include "appliance/mqtt/rules/rule.h"

#include <libcommon/text.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace {

void require(bool promise) {
    if (!promise)
        std::abort();
}

std::string_view takeLine(std::string_view& rest) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return line;
}

} // namespace

int fuzzRule(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    SourceParams keys;
    for (const char* key : {"Topic", "Path", "Condition", "Source", "Text"})
        keys[key] = std::string(takeLine(rest));
    mqtt::Rule rule;
    const std::vector<mqtt::RuleMistake> mistakes = mqtt::readRule("any", keys, rule);
    for (const mqtt::RuleMistake& mistake : mistakes)
        require(!mistake.reason.empty());
    const std::string topic(takeLine(rest));
    const nlohmann::json payload = mqtt::payloadValue(rest);
    if (const std::optional<mqtt::Detection> detection = rule.judge(topic, payload)) {
        require(mistakes.empty() && !detection->source.empty());
        for (const std::string& text : {detection->source, detection->text})
            require(text.size() <= mqtt::Pattern::longestResult && libcommon::printable(text) == text);
    }
    return 0;
}

int fuzzFleet(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    mqtt::FleetView view("site");
    while (!rest.empty()) {
        const std::string topic = "site/hall/" + std::string(takeLine(rest));
        view.take(topic, takeLine(rest));
    }
    require(view.decoders().size() <= 1);
    const std::string text = mqtt::fleetText(view.decoders());
    require(std::count(text.begin(), text.end(), '\n') ==
            1 + static_cast<std::ptrdiff_t>(view.decoders().size()));
    mqtt::fleetJson(view.decoders()).dump();
    return 0;
}
