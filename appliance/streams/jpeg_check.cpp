#include "appliance/streams/jpeg_check.h"

#include <cstddef>
#include <cstdint>

namespace streams {
namespace {

// Some encoders append padding to the end marker.
constexpr std::size_t paddingLimit = 1024;

std::uint8_t at(std::string_view bytes, std::size_t index) {
    return static_cast<std::uint8_t>(bytes[index]);
}
int wordAt(std::string_view bytes, std::size_t index) {
    return at(bytes, index) << 8 | at(bytes, index + 1);
}

bool endsAsJpeg(std::string_view bytes) {
    const std::size_t tail = bytes.size() > paddingLimit ? bytes.size() - paddingLimit : 0;
    return bytes.substr(tail).rfind("\xff\xd9") != std::string_view::npos;
}

bool standsAlone(std::uint8_t marker) {
    return marker == 0x01 || (marker >= 0xd0 && marker <= 0xd8);
}

} // namespace

std::optional<JpegSize> wholeJpeg(std::string_view bytes) {
    if (!bytes.starts_with("\xff\xd8") || !endsAsJpeg(bytes))
        return std::nullopt;
    std::size_t position = 2;
    while (position + 9 < bytes.size()) {
        if (at(bytes, position) != 0xff)
            return std::nullopt;
        const std::uint8_t marker = at(bytes, position + 1);
        if (marker == 0xff) { // fill
            ++position;
            continue;
        }
        if (standsAlone(marker)) {
            position += 2;
            continue;
        }
        // Baseline, extended, progressive; the last two with arithmetic coding.
        if ((marker >= 0xc0 && marker <= 0xc2) || marker == 0xc9 || marker == 0xca) {
            const JpegSize size{wordAt(bytes, position + 7), wordAt(bytes, position + 5)};
            return size.width > 0 && size.height > 0 ? std::optional(size) : std::nullopt;
        }
        const int length = wordAt(bytes, position + 2);
        if (marker == 0xda || marker == 0xd9 || length < 2) // picture data before the size: not valid
            return std::nullopt;
        position += 2 + static_cast<std::size_t>(length);
    }
    return std::nullopt;
}

} // namespace streams
