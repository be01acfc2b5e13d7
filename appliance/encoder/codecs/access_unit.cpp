#include "appliance/encoder/codecs/access_unit.h"

namespace {

constexpr std::string_view startCode("\0\0\1", 3);

// MPEG-4 part 2 and MPEG-2 start code values.
constexpr std::uint8_t mpeg4Picture = 0xB6;
constexpr std::uint8_t mpeg2Picture = 0x00;
// H.264 unit type.
constexpr int h264KeySlice = 5;

std::uint8_t byteAt(std::string_view piece, std::size_t at) {
    return at < piece.size() ? static_cast<std::uint8_t>(piece[at]) : 0;
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
        // A piece that consists of one zero byte: a start code of value 0.
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
