#include "appliance/serving/status_reason.h"

#include <algorithm>
#include <array>
#include <utility>

const char* reasonOf(int status) {
    constexpr std::array<std::pair<int, const char*>, 14> reasons{{{200, "OK"},
                                                                   {400, "Bad Request"},
                                                                   {401, "Unauthorized"},
                                                                   {403, "Forbidden"},
                                                                   {404, "Not Found"},
                                                                   {405, "Method Not Allowed"},
                                                                   {408, "Request Timeout"},
                                                                   {413, "Content Too Large"},
                                                                   {431, "Request Header Fields Too Large"},
                                                                   {501, "Not Implemented"},
                                                                   {454, "Session Not Found"},
                                                                   {455, "Method Not Valid in This State"},
                                                                   {461, "Unsupported Transport"},
                                                                   {503, "Service Unavailable"}}};
    const auto* const found =
        std::find_if(reasons.begin(), reasons.end(), [&](const auto& row) { return row.first == status; });
    return found == reasons.end() ? "Unknown" : found->second;
}
