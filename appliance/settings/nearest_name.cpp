#include "appliance/settings/nearest_name.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace {

constexpr std::size_t longestName = 256; // the comparison takes time and memory of both lengths

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// The number of letters to insert, delete, replace or swap with the next one, computed row by row.
std::size_t corrections(std::string_view a, std::string_view b) {
    std::vector<std::size_t> beforeLast(b.size() + 1);
    std::vector<std::size_t> last(b.size() + 1);
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const bool same = lower(a[i - 1]) == lower(b[j - 1]);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0U : 1U)});
            if (i > 1 && j > 1 && lower(a[i - 1]) == lower(b[j - 2]) && lower(a[i - 2]) == lower(b[j - 1])) {
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
            }
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last[b.size()];
}

} // namespace

std::string nearestName(std::string_view name, std::span<const std::string> names) {
    std::string nearest;
    std::size_t fewest = longestName;
    if (name.size() > longestName) {
        return nearest;
    }
    for (const std::string& candidate : names) {
        const std::size_t count = corrections(name, candidate);
        if (count < fewest && count * 3 <= std::max(name.size(), candidate.size())) {
            fewest = count;
            nearest = candidate;
        }
    }
    return nearest;
}
