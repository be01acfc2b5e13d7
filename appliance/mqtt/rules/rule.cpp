#include "appliance/mqtt/rules/rule.h"

#include "appliance/mqtt/rules/topic_filter.h"

#include <libcommon/text.h>

#include <charconv>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

constexpr int longestMinimumTime = 86400;

// Collects the mistakes of one section.
class Section {
public:
    explicit Section(const SourceParams& keys) : keys_(keys) {}

    std::string value(const char* key) const {
        const auto found = keys_.find(key);
        return found == keys_.end() ? "" : found->second;
    }

    void expect(const char* key, const std::string& mistake) {
        if (!mistake.empty()) {
            mistakes.push_back({key, mistake, ""});
        }
    }

    void require(const char* key, const char* remedy) {
        if (value(key).empty()) {
            mistakes.push_back({"", std::string("has no ") + key, remedy});
        }
    }

    std::vector<RuleMistake> mistakes;

private:
    const SourceParams& keys_;
};

// Whether brackets are nested too deep for functions that call themselves. Brackets in texts count, too: they make no
// payload of a detector that deep.
bool isTooDeep(std::string_view payload) {
    constexpr int deepest = 200;
    int depth = 0;
    for (const char character : payload) {
        depth += static_cast<int>(character == '[' || character == '{');
        depth -= static_cast<int>(character == ']' || character == '}');
        if (depth > deepest) {
            return true;
        }
    }
    return false;
}

std::string readMinimumTime(const std::string& text, int& seconds) {
    if (text.empty()) {
        return "";
    }
    int number = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size() || number < 0 ||
        number > longestMinimumTime) {
        return "takes a number from 0 to " + std::to_string(longestMinimumTime);
    }
    seconds = number;
    return "";
}

} // namespace

std::optional<Detection> Rule::judge(std::string_view messageTopic, const nlohmann::json& payload) const {
    if (!fitsFilter(messageTopic, topic) || !condition.holds(payload)) {
        return std::nullopt;
    }
    const std::optional<std::string> wanted = source.fill(messageTopic, payload, std::nullopt);
    if (!wanted || wanted->empty()) {
        return std::nullopt;
    }
    return Detection{*wanted, text.fill(messageTopic, payload, "?").value_or("")};
}

std::vector<RuleMistake> readRule(const std::string& name, const SourceParams& keys, Rule& rule) {
    Section section(keys);
    Rule read;
    read.name = name;
    read.topic = section.value("Topic");
    section.require("Topic", "add \"Topic = NAME/OF/THE/TOPIC\"");
    section.require("Source", "add \"Source = NAME\"");
    if (!read.topic.empty()) {
        section.expect("Topic", filterMistake(read.topic));
    }
    JsonPath path;
    section.expect("Path", JsonPath::read(section.value("Path"), path));
    section.expect("Condition", Condition::read(section.value("Condition"), path, read.condition));
    section.expect("Source", Pattern::read(section.value("Source"), read.source));
    section.expect("Text", Pattern::read(section.value("Text"), read.text));
    section.expect("MinimumTime", readMinimumTime(section.value("MinimumTime"), read.minimumTime));
    if (section.mistakes.empty()) {
        rule = std::move(read);
    }
    return std::move(section.mistakes);
}

nlohmann::json payloadValue(std::string_view payload) {
    if (payload.size() <= longestPayload && !isTooDeep(payload)) {
        nlohmann::json value = nlohmann::json::parse(payload, nullptr, false);
        if (!value.is_discarded()) {
            return value;
        }
    }
    return libcommon::printable(payload.substr(0, longestPayload));
}

} // namespace mqtt
