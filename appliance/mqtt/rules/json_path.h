// A path to values in a JSON text: `after.label`, `zones[0]`, `zones[*].name`, `["a.b"].c`.
//
// A small part of JSONPath: keys, indices and `[*]` for each element. A leading `$.` is accepted. docs/mqtt.md describes
// it for people. Pure; any thread.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace mqtt {

class JsonPath {
public:
    static constexpr std::size_t longest = 16; // steps

    // Replaces `path` by the path that the text means; the empty text is the whole value. Returns what is wrong with
    // the text, and leaves `path` alone then; "" for nothing.
    static std::string read(std::string_view text, JsonPath& path);

    // The values at the path, in their order; none when there is none. They belong to `whole`. At most 1000.
    std::vector<const nlohmann::json*> find(const nlohmann::json& whole) const;

    bool empty() const { return steps_.empty(); }

private:
    struct Step {
        enum class Kind { Key, Index, Each };
        Kind kind = Kind::Key;
        std::string key;
        std::size_t index = 0;
    };

    class Reader;

    std::vector<Step> steps_;
};

} // namespace mqtt
