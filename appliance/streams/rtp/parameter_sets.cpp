#include "appliance/streams/rtp/parameter_sets.h"

#include <algorithm>
#include <cstdint>

namespace streams {
namespace {

constexpr std::size_t mostSets = 16;
constexpr std::size_t longestSet = 1200; // so that each fits into one packet

int typeOf(Encoding encoding, std::string_view set) {
    const auto first = static_cast<std::uint8_t>(set[0]);
    return encoding == Encoding::h264 ? first & 31 : first >> 1 & 63;
}

int digitOf(char c) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t at = digits.find(c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

// The value of one parameter in a "fmtp" attribute; "" when there is none.
std::string_view valueIn(std::string_view fmtp, std::string_view name) {
    fmtp.remove_prefix(std::min(fmtp.find(' ') + 1, fmtp.size())); // the payload type
    while (!fmtp.empty()) {
        const std::size_t end = std::min(fmtp.find(';'), fmtp.size());
        std::string_view one = fmtp.substr(0, end);
        fmtp.remove_prefix(std::min(end + 1, fmtp.size()));
        one.remove_prefix(std::min(one.find_first_not_of(" \t"), one.size()));
        if (one.size() > name.size() && one.starts_with(name) && one[name.size()] == '=')
            return one.substr(name.size() + 1);
    }
    return {};
}

} // namespace

std::string fromBase64(std::string_view text) {
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const int digit = digitOf(c);
        if (digit < 0)
            break;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 255);
        }
    }
    return bytes;
}

ParameterSets::ParameterSets(Encoding encoding, std::string_view fmtp) : encoding_(encoding) {
    for (const std::string_view name : {"sprop-vps", "sprop-sps", "sprop-pps", "sprop-parameter-sets"}) {
        std::string_view list = valueIn(fmtp, name);
        while (!list.empty()) {
            const std::size_t end = std::min(list.find(','), list.size());
            learn(fromBase64(list.substr(0, end)));
            list.remove_prefix(std::min(end + 1, list.size()));
        }
    }
}

void ParameterSets::learn(std::string_view payload) {
    parameterSetsIn(encoding_, payload, [this](std::string_view set) { add(set); });
}

void ParameterSets::add(std::string_view set) {
    if (set.size() > longestSet || std::ranges::find(sets_, set) != sets_.end())
        return;
    constexpr int h264Picture = 8;
    constexpr int h265Picture = 34;
    const int type = typeOf(encoding_, set);
    const bool ofPicture = type == (encoding_ == Encoding::h264 ? h264Picture : h265Picture);
    // Several picture sets are usual, and they refer to the other sets. A new one of the other sets makes all later
    // ones invalid.
    if (!ofPicture)
        std::erase_if(sets_, [&](const std::string& known) { return typeOf(encoding_, known) >= type; });
    if (sets_.size() >= mostSets) {
        const auto oldest = std::ranges::find_if(
            sets_, [&](const std::string& known) { return typeOf(encoding_, known) == type; });
        if (oldest == sets_.end())
            return;
        sets_.erase(oldest);
    }
    sets_.emplace_back(set);
}

} // namespace streams
