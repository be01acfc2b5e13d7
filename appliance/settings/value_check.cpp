#include "appliance/settings/value_check.h"

#include "appliance/mqtt/rules/broker_url.h"
#include "appliance/mqtt/rules/topic_filter.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/screen/screen_settings.h"
#include "appliance/settings/address_check.h"
#include "appliance/settings/nearest_name.h"

#include <algorithm>
#include <charconv>

namespace {

bool isNumberWithin(std::string_view value, long least, long most) {
    long number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    return error == std::errc() && end == value.data() + value.size() && number >= least && number <= most;
}

bool hasControlCharacter(std::string_view value) {
    return std::ranges::any_of(value,
                               [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

// The value without text behind it that looks like a comment.
std::string_view withoutComment(std::string_view value) {
    const std::size_t sign = std::min(value.find(" #"), value.find(" ;"));
    return sign == std::string_view::npos ? value : value.substr(0, sign);
}

std::optional<Mistake> takes(const std::string& what, std::string_view value, const std::string& remedy) {
    return Mistake{"takes " + what + ", not " + inQuotes(value), remedy};
}

// The supervisor compares exactly: "Yes" would count as "no".
std::optional<Mistake> wordMistake(const KnownParameter& parameter, std::string_view value) {
    const std::vector<std::string> words = valueWords(parameter);
    if (std::ranges::find(words, value) != words.end()) {
        return std::nullopt;
    }
    const std::string meant = nearestName(value, words);
    std::string remedy = "write " + (meant.empty() ? "one of them" : inQuotes(meant));
    if (std::ranges::any_of(words, [&](const std::string& word) { return sameName(word, value); })) {
        remedy += ": values are in small letters";
    }
    return takes(takenText(parameter), value, remedy);
}

std::optional<Mistake> encoderValueMistake(std::string_view value) {
    if (sameName(value, "default") && value != "default") {
        return takes("\"default\" in small letters", value, "write \"default\"");
    }
    if (value.find(' ') != std::string_view::npos || hasControlCharacter(value)) {
        return takes("one word", value, "write \"default\", or what the encoder is to be asked for");
    }
    return std::nullopt;
}

std::optional<Mistake> mistakeIn(const KnownParameter& parameter, std::string_view value) {
    switch (parameter.kind) {
    case ValueKind::YesNo:
    case ValueKind::Choice:
        return wordMistake(parameter, value);
    case ValueKind::Number:
        return isNumberWithin(value, parameter.least, parameter.most)
                   ? std::nullopt
                   : takes(takenText(parameter), value, "write digits only");
    case ValueKind::ChoiceOrNumber:
        return isNumberWithin(value, parameter.least, parameter.most) ? std::nullopt
                                                                      : wordMistake(parameter, value);
    case ValueKind::ChoiceOrSize:
        return screen::screenSize(value) ? std::nullopt : wordMistake(parameter, value);
    case ValueKind::Address: {
        const std::string mistake = addressMistake(value);
        return mistake.empty() ? std::nullopt : std::optional<Mistake>({inQuotes(value) + ' ' + mistake, ""});
    }
    case ValueKind::Broker: {
        const std::string mistake = mqtt::brokerMistake(value);
        return mistake.empty() ? std::nullopt
                               : std::optional<Mistake>({mistake, "write mqtt://HOST or mqtts://HOST"});
    }
    case ValueKind::OwnTopic: {
        const std::string mistake = mqtt::ownTopicMistake(value);
        return mistake.empty() ? std::nullopt : std::optional<Mistake>({mistake, "write SITE/NAME"});
    }
    case ValueKind::Default:
        return encoderValueMistake(value);
    case ValueKind::Text:
        return hasControlCharacter(value) ? takes("a text without control characters", value, "remove them")
                                          : std::nullopt;
    }
    return std::nullopt;
}

} // namespace

std::optional<Mistake> valueMistake(const KnownParameter& parameter, std::string_view value) {
    if (value.empty()) {
        return std::nullopt;
    }
    std::optional<Mistake> mistake = mistakeIn(parameter, value);
    const std::string_view meant = withoutComment(value);
    if (mistake && meant.size() < value.size() && !mistakeIn(parameter, meant)) {
        mistake->remedy = "give the comment a line of its own: behind a value it is part of the value";
    }
    return mistake;
}
