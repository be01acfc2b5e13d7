// What the keeper of warm sources says about the streams that it keeps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace streams {

struct KeptReport {
    std::vector<int> sources;   // the indices of those that are this stream
    bool kept = false;          // a player gets a picture at once
    std::int64_t keyAgeMs = -1; // since the last key picture; -1: there is none
    std::int64_t bitRate = 0;   // bits per second
    std::size_t bytes = 0;      // that are kept
    int players = 0;            // that take it
    std::string reason;         // why it is not kept; "": it is
};

// One line without line end.
std::string writeKeptReport(const KeptReport& report);
// Nothing for a line that is none.
std::optional<KeptReport> readKeptReport(std::string_view line);

// Asks the keeper. Nothing when there is no keeper, when it belongs to another user, or when it does not answer in time.
std::optional<std::vector<KeptReport>> askKeeper(int limitMs = 500);

} // namespace streams
