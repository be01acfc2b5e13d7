#include "appliance/mqtt/rules/json_path.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

constexpr std::size_t mostValues = 1000;
constexpr std::string_view notInKeys = ".[]{}\"$*'?()@ ";

} // namespace

// Reads one step after the other; each function returns what is wrong, "" for nothing.
class JsonPath::Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    std::string read(std::vector<Step>& steps) {
        skipRoot();
        bool first = true;
        while (!rest_.empty()) {
            if (steps.size() == longest) {
                return "has more than " + std::to_string(longest) + " steps";
            }
            Step step;
            const std::string mistake = rest_.front() == '[' ? bracket(step) : key(step, first);
            if (!mistake.empty()) {
                return mistake;
            }
            steps.push_back(std::move(step));
            first = false;
        }
        return "";
    }

private:
    void skipRoot() {
        if (rest_ == "$" || rest_.starts_with("$.") || rest_.starts_with("$[")) {
            rest_.remove_prefix(rest_.starts_with("$.") ? 2 : 1);
        }
    }

    std::string key(Step& step, bool first) {
        if (!first) {
            if (rest_.front() != '.') {
                return "needs a dot between two keys";
            }
            rest_.remove_prefix(1);
        }
        const std::size_t end = std::min(rest_.find_first_of(notInKeys), rest_.size());
        step.key = rest_.substr(0, end);
        rest_.remove_prefix(end);
        if (step.key.empty()) {
            return "has no key where one has to be";
        }
        if (!rest_.empty() && rest_.front() != '.' && rest_.front() != '[') {
            return std::string("has \"") + rest_.front() + "\" in a key: write [\"KEY\"]";
        }
        return "";
    }

    std::string bracket(Step& step) {
        rest_.remove_prefix(1);
        const std::string mistake = rest_.starts_with('"')    ? quotedKey(step)
                                    : rest_.starts_with("*]") ? each(step)
                                                              : index(step);
        if (!mistake.empty()) {
            return mistake;
        }
        if (!rest_.starts_with(']')) {
            return "has a \"[\" without its \"]\"";
        }
        rest_.remove_prefix(1);
        return "";
    }

    std::string quotedKey(Step& step) {
        const std::size_t end = rest_.find('"', 1);
        if (end == std::string_view::npos) {
            return "has a quotation mark without its end";
        }
        step.key = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        return "";
    }

    std::string each(Step& step) {
        step.kind = Step::Kind::Each;
        rest_.remove_prefix(1);
        return "";
    }

    std::string index(Step& step) {
        step.kind = Step::Kind::Index;
        const auto [end, error] = std::from_chars(rest_.data(), rest_.data() + rest_.size(), step.index);
        if (error != std::errc()) {
            return R"(has no number, "*" or quoted key after a "[")";
        }
        rest_.remove_prefix(static_cast<std::size_t>(end - rest_.data()));
        return "";
    }

    std::string_view rest_;
};

std::string JsonPath::read(std::string_view text, JsonPath& path) {
    std::vector<Step> steps;
    std::string mistake = Reader(text).read(steps);
    if (mistake.empty()) {
        path.steps_ = std::move(steps);
    }
    return mistake;
}

std::vector<const nlohmann::json*> JsonPath::find(const nlohmann::json& whole) const {
    std::vector<const nlohmann::json*> found{&whole};
    for (const Step& step : steps_) {
        std::vector<const nlohmann::json*> next;
        for (const nlohmann::json* value : found) {
            if (step.kind == Step::Kind::Key && value->is_object()) {
                if (const auto at = value->find(step.key); at != value->end()) {
                    next.push_back(&*at);
                }
            } else if (step.kind == Step::Kind::Index && value->is_array() && step.index < value->size()) {
                next.push_back(&(*value)[step.index]);
            } else if (step.kind == Step::Kind::Each && value->is_array()) {
                const std::size_t count =
                    std::min(value->size(), mostValues - std::min(mostValues, next.size()));
                for (std::size_t i = 0; i < count; ++i) {
                    next.push_back(&(*value)[i]);
                }
            }
        }
        found = std::move(next);
    }
    return found;
}

} // namespace mqtt
