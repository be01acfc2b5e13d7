#include "appliance/mqtt/rules/topic_filter.h"

#include <libcommon/text.h>

namespace mqtt {
namespace {

constexpr std::size_t longest = 1024; // bytes; the protocol allows more, brokers often less

// Takes the first level off.
std::string_view takeLevel(std::string_view& rest) {
    const std::size_t slash = rest.find('/');
    const std::string_view level = rest.substr(0, slash);
    rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    return level;
}

std::string textMistake(std::string_view topic) {
    if (topic.empty()) {
        return "is empty";
    }
    if (topic.size() > longest) {
        return "has more than " + std::to_string(longest) + " bytes";
    }
    return libcommon::printable(topic) == topic ? "" : "is not UTF-8 in one line";
}

} // namespace

std::string filterMistake(std::string_view filter) {
    if (std::string mistake = textMistake(filter); !mistake.empty()) {
        return mistake;
    }
    for (std::size_t at = 0; at < filter.size(); ++at) {
        const bool starts = at == 0 || filter[at - 1] == '/';
        const bool ends = at + 1 == filter.size() || filter[at + 1] == '/';
        if (filter[at] == '+' && !(starts && ends)) {
            return R"(has a "+" that is not a whole level)";
        }
        if (filter[at] == '#' && !(starts && at + 1 == filter.size())) {
            return R"(has a "#" that is not the last level)";
        }
    }
    return "";
}

bool fitsFilter(std::string_view topic, std::string_view filter) {
    if (topic.starts_with('$') && (filter.starts_with('+') || filter.starts_with('#'))) {
        return false;
    }
    bool topicEnds = false; // a topic that ends with a slash has an empty last level
    bool filterEnds = false;
    while (true) {
        topicEnds = topic.find('/') == std::string_view::npos;
        filterEnds = filter.find('/') == std::string_view::npos;
        const std::string_view wanted = takeLevel(filter);
        if (wanted == "#") {
            return true;
        }
        if (wanted != takeLevel(topic) && wanted != "+") {
            return false;
        }
        if (topicEnds) {
            return filterEnds || filter == "#"; // "a/#" fits "a", too
        }
        if (filterEnds) {
            return false;
        }
    }
}

std::string_view topicLevel(std::string_view topic, std::size_t number) {
    std::string_view level = takeLevel(topic);
    for (; number > 0 && !topic.empty(); --number) {
        level = takeLevel(topic);
    }
    return number == 0 ? level : std::string_view();
}

std::string ownTopicMistake(std::string_view topic) {
    if (std::string mistake = textMistake(topic); !mistake.empty()) {
        return mistake;
    }
    if (topic.find_first_of("+#") != std::string_view::npos) {
        return R"(has a "+" or "#", which are for filters)";
    }
    const std::size_t slash = topic.rfind('/');
    if (slash == std::string_view::npos || slash == 0 || slash + 1 == topic.size()) {
        return "is not SITE/NAME";
    }
    return topic[slash + 1] == '_' ? R"(has a name that begins with "_")" : "";
}

} // namespace mqtt
