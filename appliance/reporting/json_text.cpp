#include "appliance/reporting/json_text.h"

#include <nlohmann/json.hpp>

namespace {

constexpr auto replaceBadBytes = nlohmann::json::error_handler_t::replace;

} // namespace

std::string jsonLine(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, replaceBadBytes);
}

std::string jsonLines(const nlohmann::json& json) {
    return json.dump(2, ' ', false, replaceBadBytes) + '\n';
}
