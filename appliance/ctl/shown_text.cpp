#include "appliance/ctl/shown_text.h"

#include <nlohmann/json.hpp>

std::string shown(std::string_view text) {
    // The JSON library knows what UTF-8 is.
    const nlohmann::json json = std::string(text);
    const std::string valid =
        nlohmann::json::parse(json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    std::string clean;
    for (std::size_t i = 0; i < valid.size(); ++i) {
        const auto byte = static_cast<unsigned char>(valid[i]);
        const bool controlOfTwoBytes =
            byte == 0xc2 && i + 1 < valid.size() && static_cast<unsigned char>(valid[i + 1]) < 0xa0;
        i += controlOfTwoBytes ? 1 : 0;
        clean += byte < ' ' || byte == 0x7f || controlOfTwoBytes ? ' ' : valid[i];
    }
    return clean;
}

std::string inQuotes(std::string_view text) {
    return '"' + shown(text) + '"';
}
