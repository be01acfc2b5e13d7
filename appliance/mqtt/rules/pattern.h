// A text with placeholders for values of a message: `Person in the {after.camera}`.
//
// `{PATH}` is a value of the JSON payload, `{topic}` the topic and `{topic.N}` its level N, from 0 on. `{{` is one brace.
// Pure; any thread.
#pragma once

#include "appliance/mqtt/rules/json_path.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

class Pattern {
public:
    static constexpr std::size_t longestResult = 255; // bytes

    // Replaces `pattern` by what the text means. Returns what is wrong with the text, and leaves `pattern` alone then; ""
    // for nothing.
    static std::string read(std::string_view text, Pattern& pattern);

    // The text for a message, printable, cut to the longest result. A placeholder without a value becomes
    // `instead`; without `instead` there is no text then.
    std::optional<std::string> fill(std::string_view topic, const nlohmann::json& payload,
                                    const std::optional<std::string>& instead) const;

private:
    struct Part {
        enum class Kind { Text, Value, Topic, Level };
        Kind kind = Kind::Text;
        std::string text; // of Text
        JsonPath path;    // of Value
        std::size_t level = 0;
    };

    static std::string readPlaceholder(std::string_view text, Part& part);
    static std::optional<std::string> valueOf(const Part& part, std::string_view topic,
                                              const nlohmann::json& payload);

    std::vector<Part> parts_;
};

} // namespace mqtt
