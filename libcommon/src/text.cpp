// Small text conversions: base64 and letter case.
#include <libcommon/network.h>

#include <cstdint>

std::string base64encode(const void* bytes, std::size_t length) {
    static constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const auto* data = static_cast<const unsigned char*>(bytes);
    std::string text;
    text.reserve((length + 2) / 3 * 4);
    for (std::size_t at = 0; at < length; at += 3) {
        const std::size_t have = length - at;
        std::uint32_t group = data[at] << 16U;
        group |= have > 1 ? data[at + 1] << 8U : 0;
        group |= have > 2 ? data[at + 2] : 0;
        text += digits[group >> 18U & 63U];
        text += digits[group >> 12U & 63U];
        text += have > 1 ? digits[group >> 6U & 63U] : '=';
        text += have > 2 ? digits[group & 63U] : '=';
    }
    return text;
}

void toLower(char* text) {
    // Not tolower(): an encoder's text must mean the same in every locale.
    for (; *text != '\0'; ++text)
        if (*text >= 'A' && *text <= 'Z')
            *text = static_cast<char>(*text - 'A' + 'a');
}
