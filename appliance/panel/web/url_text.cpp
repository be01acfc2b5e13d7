#include "appliance/panel/web/url_text.h"

#include <libcommon/text.h>

namespace panel {
namespace {

constexpr std::size_t mostFields = 64;

int digitValue(char digit) {
    if (digit >= '0' && digit <= '9')
        return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte of the escape that begins at `at`, or -1.
int escapedByte(std::string_view text, std::size_t at) {
    if (at + 2 >= text.size())
        return -1;
    const int high = digitValue(text[at + 1]);
    const int low = digitValue(text[at + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

} // namespace

std::optional<std::string> decoded(std::string_view encoded, bool plusIsBlank) {
    std::string text;
    for (std::size_t at = 0; at < encoded.size(); ++at) {
        if (encoded[at] == '%') {
            const int byte = escapedByte(encoded, at);
            if (byte < 0)
                return std::nullopt;
            text += static_cast<char>(byte);
            at += 2;
        } else {
            text += plusIsBlank && encoded[at] == '+' ? ' ' : encoded[at];
        }
    }
    if (libcommon::printable(text) != text)
        return std::nullopt;
    return text;
}

std::optional<Texts> decodedFields(std::string_view encoded) {
    Texts fields;
    std::size_t count = 0;
    while (!encoded.empty()) {
        const std::string_view field = encoded.substr(0, encoded.find('&'));
        encoded.remove_prefix(std::min(encoded.size(), field.size() + 1));
        if (field.empty())
            continue;
        const std::size_t equals = std::min(field.find('='), field.size());
        const auto name = decoded(field.substr(0, equals), true);
        const auto value = decoded(field.substr(std::min(equals + 1, field.size())), true);
        if (!name || !value || ++count > mostFields)
            return std::nullopt;
        fields.emplace(*name, *value);
    }
    return fields;
}

} // namespace panel
