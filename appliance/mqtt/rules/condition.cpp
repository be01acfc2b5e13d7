#include "appliance/mqtt/rules/condition.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

namespace mqtt {
namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view signs = "=!<>";

struct Word {
    std::string text;
    bool quoted = false;

    bool is(std::string_view word) const { return !quoted && text == word; }
};

std::optional<double> asNumber(std::string_view text) {
    double number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size() && std::isfinite(number);
    return whole ? std::optional(number) : std::nullopt;
}

std::optional<double> numberOf(const nlohmann::json& value) {
    if (value.is_number()) {
        return value.get<double>();
    }
    return value.is_string() ? asNumber(value.get_ref<const std::string&>()) : std::nullopt;
}

bool isEqual(const nlohmann::json& value, const std::string& wanted) {
    const std::optional<double> number = asNumber(wanted);
    return value.is_number() && number ? value.get<double>() == *number : valueText(value) == wanted;
}

bool contains(const nlohmann::json& value, const std::string& wanted) {
    if (value.is_array()) {
        return std::ranges::any_of(value,
                                   [&](const nlohmann::json& element) { return isEqual(element, wanted); });
    }
    return value.is_string() && value.get_ref<const std::string&>().find(wanted) != std::string::npos;
}

} // namespace

// Splits a text into words, and makes comparisons of them.
class Condition::Reader {
public:
    Reader(std::string_view text, const JsonPath& path) : rest_(text), path_(path) {}

    std::string read(std::vector<Comparison>& comparisons) {
        if (std::string mistake = splitWords(); !mistake.empty()) {
            return mistake;
        }
        auto begin = words_.begin();
        while (true) {
            const auto end =
                std::find_if(begin, words_.end(), [](const Word& word) { return word.is("and"); });
            Comparison comparison;
            if (std::string mistake = readComparison({begin, end}, comparison); !mistake.empty()) {
                return mistake;
            }
            comparisons.push_back(std::move(comparison));
            if (end == words_.end()) {
                return "";
            }
            begin = end + 1;
        }
    }

private:
    std::string splitWords() {
        while (true) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(blanks), rest_.size()));
            if (rest_.empty()) {
                return "";
            }
            if (!(rest_.front() == '"' ? quotedWord() : plainWord())) {
                return "has a quotation mark without its end";
            }
        }
    }

    bool quotedWord() {
        Word word{.text = "", .quoted = true};
        for (std::size_t at = 1; at < rest_.size(); ++at) {
            if (rest_[at] == '"') {
                words_.push_back(std::move(word));
                rest_.remove_prefix(at + 1);
                return true;
            }
            const bool escaped =
                rest_[at] == '\\' && at + 1 < rest_.size() && (rest_[at + 1] == '"' || rest_[at + 1] == '\\');
            at += escaped ? 1 : 0;
            word.text += rest_[at];
        }
        return false;
    }

    // Operators end a word, also without blanks. Quotation marks inside belong to a path's key.
    bool plainWord() {
        const bool sign = isSign(rest_.front());
        bool inQuotes = false;
        std::size_t end = 0;
        while (end < rest_.size() && (inQuotes || (blanks.find(rest_[end]) == std::string_view::npos &&
                                                   isSign(rest_[end]) == sign))) {
            inQuotes = inQuotes != (rest_[end] == '"');
            ++end;
        }
        words_.push_back({std::string(rest_.substr(0, end)), false});
        rest_.remove_prefix(end);
        return !inQuotes;
    }

    static bool isSign(char character) { return signs.find(character) != std::string_view::npos; }

    std::string readComparison(std::vector<Word> words, Comparison& comparison) const {
        comparison.path = path_;
        if (words.empty()) {
            return "has no comparison where one has to be";
        }
        if (!readOperator(words.front(), comparison.how)) {
            if (words.front().quoted) {
                return "has a quoted text where a path or an operator has to be";
            }
            const std::string mistake = JsonPath::read(words.front().text, comparison.path);
            if (!mistake.empty()) {
                return "has the path \"" + words.front().text + "\", which " + mistake;
            }
            words.erase(words.begin());
            if (words.empty() || !readOperator(words.front(), comparison.how)) {
                return "has no operator (=, !=, <, >, contains, exists) after a path";
            }
        }
        return readWanted(words, comparison);
    }

    static std::string readWanted(const std::vector<Word>& words, Comparison& comparison) {
        const std::string after = " after \"" + words.front().text + "\"";
        if (comparison.how == Operator::Exists) {
            return words.size() == 1 ? "" : "has a value" + after;
        }
        if (words.size() == 1) {
            return "has no value" + after;
        }
        if (words.size() > 2) {
            return "has more than one word" + after + ": put the value in quotation marks";
        }
        comparison.wanted = words[1].text;
        const bool ordered = comparison.how == Operator::Less || comparison.how == Operator::Greater;
        return ordered && !asNumber(comparison.wanted) ? "has no number" + after : "";
    }

    static bool readOperator(const Word& word, Operator& how) {
        struct Sign {
            std::string_view text;
            Operator how;
        };
        static constexpr std::array table{Sign{"=", Operator::Equal},
                                          Sign{"!=", Operator::Different},
                                          Sign{"<", Operator::Less},
                                          Sign{">", Operator::Greater},
                                          Sign{"contains", Operator::Contains},
                                          Sign{"exists", Operator::Exists}};
        const auto* const found =
            std::ranges::find_if(table, [&](const Sign& sign) { return word.is(sign.text); });
        if (found == table.end()) {
            return false;
        }
        how = found->how;
        return true;
    }

    std::string_view rest_;
    const JsonPath& path_;
    std::vector<Word> words_;
};

std::string Condition::read(std::string_view text, const JsonPath& path, Condition& condition) {
    std::vector<Comparison> comparisons;
    if (text.find_first_not_of(blanks) == std::string_view::npos) {
        comparisons.push_back({path, Operator::Exists, ""});
    } else if (std::string mistake = Reader(text, path).read(comparisons); !mistake.empty()) {
        return mistake;
    }
    condition.comparisons_ = std::move(comparisons);
    return "";
}

bool Condition::Comparison::holds(const nlohmann::json& value) const {
    switch (how) {
    case Operator::Equal:
        return isEqual(value, wanted);
    case Operator::Different:
        return !isEqual(value, wanted);
    case Operator::Less:
        return numberOf(value) && *numberOf(value) < asNumber(wanted).value_or(0);
    case Operator::Greater:
        return numberOf(value) && *numberOf(value) > asNumber(wanted).value_or(0);
    case Operator::Contains:
        return contains(value, wanted);
    case Operator::Exists:
        return true;
    }
    return false;
}

bool Condition::holds(const nlohmann::json& payload) const {
    return std::ranges::all_of(comparisons_, [&](const Comparison& comparison) {
        const std::vector<const nlohmann::json*> values = comparison.path.find(payload);
        return std::ranges::any_of(values,
                                   [&](const nlohmann::json* value) { return comparison.holds(*value); });
    });
}

std::string valueText(const nlohmann::json& value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

} // namespace mqtt
