#include "appliance/reporting/source_names.h"

#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"

#include <algorithm>
#include <charconv>
#include <strings.h>

namespace {

bool beginsWith(std::string_view name, std::string_view start) {
    return name.size() >= start.size() && strncasecmp(name.data(), start.data(), start.size()) == 0;
}

std::string listed(const std::vector<int>& indices, const std::vector<std::string>& names) {
    std::string text;
    for (const int index : indices) {
        text += (text.empty() ? "" : ", ") + std::to_string(index) + ' ' + inQuotes(names[index]);
    }
    return text;
}

// -1 when the text is not the index of a source.
int asIndex(std::string_view wanted, std::size_t count) {
    int index = -1;
    const auto [end, error] = std::from_chars(wanted.data(), wanted.data() + wanted.size(), index);
    const bool number = error == std::errc() && end == wanted.data() + wanted.size();
    return number && index >= 0 && static_cast<std::size_t>(index) < count ? index : -1;
}

} // namespace

int resolveSource(std::string_view wanted, const std::vector<std::string>& names) {
    if (names.empty()) {
        throw Refused("no sources are configured");
    }
    if (const int index = asIndex(wanted, names.size()); index >= 0) {
        return index;
    }
    std::vector<int> whole;
    std::vector<int> beginning;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!wanted.empty() && beginsWith(names[i], wanted)) {
            (names[i].size() == wanted.size() ? whole : beginning).push_back(static_cast<int>(i));
        }
    }
    const std::vector<int>& fitting = whole.empty() ? beginning : whole;
    if (fitting.size() == 1) {
        return fitting.front();
    }
    const std::string typed = inQuotes(wanted);
    if (fitting.size() > 1) {
        throw Refused(typed + " fits more than one source: " + listed(fitting, names) + "; use the number");
    }
    std::vector<int> all(std::min<std::size_t>(names.size(), 20));
    for (std::size_t i = 0; i < all.size(); ++i) {
        all[i] = static_cast<int>(i);
    }
    throw Refused("there is no source " + typed + "; there " + (names.size() == 1 ? "is " : "are ") +
                  listed(all, names) + (all.size() < names.size() ? ", ..." : ""));
}
