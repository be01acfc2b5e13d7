// The condition of a rule: `= person`, `type = new and after.score > 0.7`, `zones contains yard`, `after.id exists`.
//
// One comparison or several with `and` between them. docs/mqtt.md describes the operators. Pure; any thread.
#pragma once

#include "appliance/mqtt/rules/json_path.h"

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

class Condition {
public:
    // Replaces `condition` by what the text means. A comparison without a path is about `path`; the empty text asks for a
    // value there. Returns what is wrong with the text, and leaves `condition` alone then; "" for nothing.
    static std::string read(std::string_view text, const JsonPath& path, Condition& condition);

    // Whether it holds for a payload.
    bool holds(const nlohmann::json& payload) const;

private:
    enum class Operator { Equal, Different, Less, Greater, Contains, Exists };
    struct Comparison {
        JsonPath path;
        Operator how = Operator::Exists;
        std::string wanted;

        bool holds(const nlohmann::json& value) const;
    };

    class Reader;

    std::vector<Comparison> comparisons_;
};

// A value as text, as it is compared and put into texts: a text without quotation marks, otherwise its JSON.
std::string valueText(const nlohmann::json& value);

} // namespace mqtt
