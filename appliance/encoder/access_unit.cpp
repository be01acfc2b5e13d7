#include "appliance/encoder/access_unit.h"

#include "appliance/encoder/auth.h"

namespace {

constexpr std::string_view startCode("\0\0\1", 3);

// MPEG-4 part 2 and MPEG-2 start code values.
constexpr std::uint8_t mpeg4Group = 0xB3;
constexpr std::uint8_t mpeg4Picture = 0xB6;
constexpr std::uint8_t mpeg2Picture = 0x00;
// H.264 unit types.
constexpr int h264KeySlice = 5;
constexpr int h264SequenceSet = 7;
constexpr int h264PictureSet = 8;

std::uint8_t byteAt(std::string_view piece, std::size_t at) {
    return at < piece.size() ? static_cast<std::uint8_t>(piece[at]) : 0;
}

int h264Type(std::string_view unit) {
    return byteAt(unit, 0) & 0x1F;
}

std::string hex(std::string_view bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<std::uint8_t>(byte) >> 4];
        text += digits[static_cast<std::uint8_t>(byte) & 15];
    }
    return text;
}

std::string_view h264Unit(std::string_view key, int type) {
    for (const std::string_view unit : piecesOf(key)) {
        if (h264Type(unit) == type)
            return unit;
    }
    return {};
}

} // namespace

std::vector<std::string_view> piecesOf(std::string_view bytes) {
    std::vector<std::string_view> pieces;
    std::size_t at = bytes.find(startCode);
    while (at != std::string_view::npos) {
        const std::size_t begin = at + startCode.size();
        at = bytes.find(startCode, begin);
        std::string_view piece = bytes.substr(begin, at == std::string_view::npos ? at : at - begin);
        if (at != std::string_view::npos) {
            while (!piece.empty() && piece.back() == '\0')
                piece.remove_suffix(1);
        }
        // A start code of value 0 is a piece whose only first byte is that zero.
        pieces.push_back(piece.empty() ? bytes.substr(begin, 1) : piece);
    }
    return pieces;
}

bool isKey(Codec codec, std::string_view bytes) {
    for (const std::string_view piece : piecesOf(bytes)) {
        const std::uint8_t value = byteAt(piece, 0);
        switch (codec) {
        case Codec::Mpeg4:
            if (value == mpeg4Picture)
                return byteAt(piece, 1) >> 6 == 0;
            break;
        case Codec::Mpeg2:
            if (value == mpeg2Picture)
                return (byteAt(piece, 2) >> 3 & 7) == 1;
            break;
        case Codec::H264:
            if ((value & 0x1F) >= 1 && (value & 0x1F) <= h264KeySlice)
                return (value & 0x1F) == h264KeySlice;
            break;
        }
    }
    return false;
}

std::string mpeg4Config(std::string_view key) {
    std::size_t at = 0;
    while ((at = key.find(startCode, at)) != std::string_view::npos) {
        const std::uint8_t value = byteAt(key, at + 3);
        if (value == mpeg4Group || value == mpeg4Picture)
            return hex(key.substr(0, at));
        at += startCode.size();
    }
    return {};
}

std::string h264ParameterSets(std::string_view key) {
    const std::string_view sequence = h264Unit(key, h264SequenceSet);
    const std::string_view picture = h264Unit(key, h264PictureSet);
    if (sequence.empty() || picture.empty())
        return {};
    return base64Encoded(sequence) + "," + base64Encoded(picture);
}

std::string h264ProfileLevel(std::string_view key) {
    const std::string_view sequence = h264Unit(key, h264SequenceSet);
    return sequence.size() < 4 ? std::string() : hex(sequence.substr(1, 3));
}
