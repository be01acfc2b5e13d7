// A rule: which messages of other systems raise an alarm, for which source, with which text.
//
// It is a section [Rule.NAME] of the configuration. docs/mqtt.md describes its keys. Pure; any thread.
#pragma once

#include "appliance/mqtt/rules/condition.h"
#include "appliance/mqtt/rules/pattern.h"

#include <libcommon/params.h>

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

inline constexpr int usualMinimumTime = 10; // seconds

// What a message means.
struct Detection {
    std::string source; // a number, a name, or the beginning of a name
    std::string text;   // of the alarm; "" for none
};

struct RuleMistake {
    std::string key; // of the section; "" when the mistake is a missing key
    std::string reason;
    std::string remedy;
};

struct Rule {
    std::string name;
    std::string topic; // a filter
    Condition condition;
    Pattern source;
    Pattern text;
    int minimumTime = usualMinimumTime; // seconds between two alarms

    // The detection in a message; nothing when the rule is not about it, or its source has no value.
    std::optional<Detection> judge(std::string_view messageTopic, const nlohmann::json& payload) const;
};

// Reads a section. `name` is that of the section without "Rule."; `keys` has the keys that it has. All mistakes, none
// when `rule` is the rule now.
std::vector<RuleMistake> readRule(const std::string& name, const SourceParams& keys, Rule& rule);

// The value of a payload: its JSON, or if it is none, a text. At most `longestPayload` bytes are read as JSON.
inline constexpr std::size_t longestPayload = 1 << 20;
nlohmann::json payloadValue(std::string_view payload);

} // namespace mqtt
