#include "appliance/mqtt/rules/pattern.h"

#include "appliance/mqtt/rules/condition.h"
#include "appliance/mqtt/rules/topic_filter.h"

#include <libcommon/text.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

constexpr std::string_view levelPrefix = "topic.";

// The place of the brace that ends a placeholder; braces in quotation marks belong to a key.
std::size_t endOf(std::string_view placeholder) {
    bool inQuotes = false;
    for (std::size_t at = 0; at < placeholder.size(); ++at) {
        inQuotes = inQuotes != (placeholder[at] == '"');
        if (placeholder[at] == '}' && !inQuotes) {
            return at;
        }
    }
    return std::string_view::npos;
}

// Cut between two characters of UTF-8.
std::string cut(std::string text, std::size_t most) {
    if (text.size() > most) {
        while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xc0) == 0x80) {
            --most;
        }
        text.resize(most);
    }
    return text;
}

} // namespace

std::string Pattern::read(std::string_view text, Pattern& pattern) {
    std::vector<Part> parts;
    while (!text.empty()) {
        Part part;
        if (text.front() != '{' || text.starts_with("{{")) {
            const std::size_t from = text.front() == '{' ? 1 : 0; // of two braces one stays
            const std::size_t end = std::min(text.find('{', from + 1), text.size());
            part.text = text.substr(from, end - from);
            text.remove_prefix(end);
        } else {
            text.remove_prefix(1);
            const std::size_t end = endOf(text);
            if (end == std::string_view::npos) {
                return R"(has a "{" without its "}")";
            }
            if (std::string mistake = readPlaceholder(text.substr(0, end), part); !mistake.empty()) {
                return mistake;
            }
            text.remove_prefix(end + 1);
        }
        parts.push_back(std::move(part));
    }
    pattern.parts_ = std::move(parts);
    return "";
}

std::string Pattern::readPlaceholder(std::string_view text, Part& part) {
    part.kind = Part::Kind::Value;
    if (text == "topic") {
        part.kind = Part::Kind::Topic;
        return "";
    }
    if (text.starts_with(levelPrefix)) {
        const std::string_view digits = text.substr(levelPrefix.size());
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), part.level);
        if (error == std::errc() && end == digits.data() + digits.size()) {
            part.kind = Part::Kind::Level;
            return "";
        }
    }
    const std::string mistake = JsonPath::read(text, part.path);
    return mistake.empty() ? "" : "has the placeholder {" + std::string(text) + "}, which " + mistake;
}

std::optional<std::string> Pattern::valueOf(const Part& part, std::string_view topic,
                                            const nlohmann::json& payload) {
    switch (part.kind) {
    case Part::Kind::Text:
        return part.text;
    case Part::Kind::Topic:
        return std::string(topic);
    case Part::Kind::Level: {
        const std::string_view level = topicLevel(topic, part.level);
        return level.empty() ? std::nullopt : std::optional(std::string(level));
    }
    case Part::Kind::Value: {
        const std::vector<const nlohmann::json*> values = part.path.find(payload);
        return values.empty() || values.front()->is_null() ? std::nullopt
                                                           : std::optional(valueText(*values.front()));
    }
    }
    return std::nullopt;
}

std::optional<std::string> Pattern::fill(std::string_view topic, const nlohmann::json& payload,
                                         const std::optional<std::string>& instead) const {
    std::string text;
    for (const Part& part : parts_) {
        const std::optional<std::string> value = valueOf(part, topic, payload);
        if (!value && !instead) {
            return std::nullopt;
        }
        text += cut(value ? *value : *instead, longestResult);
    }
    return cut(libcommon::printable(text), longestResult);
}

} // namespace mqtt
