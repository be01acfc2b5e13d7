#include "appliance/streams/rtp/picture_size.h"

#include <charconv>
#include <cstdint>
#include <string>

namespace streams {
namespace {

constexpr int h264Sequence = 7;
constexpr int h265Sequence = 33;
constexpr unsigned largest = 16384;

// Reads the bits of a NAL unit. Behind the end it reads zeros and is no longer good.
class Bits {
public:
    // `isUnit`: a NAL unit, whose bytes that only prevent start codes are left out.
    explicit Bits(std::string_view unit, bool isUnit = true) {
        int zeros = 0;
        for (const char c : unit) {
            if (isUnit && zeros >= 2 && c == 3) {
                zeros = 0;
                continue;
            }
            zeros = c == 0 ? zeros + 1 : 0;
            bytes_ += c;
        }
    }

    unsigned take(int count) {
        unsigned value = 0;
        for (int i = 0; i < count; ++i, ++at_) {
            const bool inside = at_ / 8 < bytes_.size();
            good_ = good_ && inside;
            const unsigned bit =
                inside ? static_cast<std::uint8_t>(bytes_[at_ / 8]) >> (7 - at_ % 8) & 1U : 0;
            value = value << 1 | bit;
        }
        return value;
    }

    // Exponential Golomb code.
    unsigned number() {
        int zeros = 0;
        while (good_ && zeros < 32 && take(1) == 0)
            ++zeros;
        return zeros >= 32 ? (good_ = false, 0) : (1U << zeros) - 1 + take(zeros);
    }

    void skip(int count) { at_ += static_cast<std::size_t>(count); }
    bool good() const { return good_; }

private:
    std::string bytes_;
    std::size_t at_ = 0;
    bool good_ = true;
};

std::optional<PictureSize> checked(const Bits& bits, unsigned width, unsigned height) {
    if (!bits.good() || width == 0 || height == 0 || width > largest || height > largest)
        return std::nullopt;
    return PictureSize{static_cast<int>(width), static_cast<int>(height)};
}

void skipScalingLists(Bits& bits, unsigned chroma) {
    const int lists = chroma == 3 ? 12 : 8;
    for (int list = 0; list < lists; ++list) {
        if (bits.take(1) == 0)
            continue;
        const int entries = list < 6 ? 16 : 64;
        unsigned last = 8;
        unsigned next = 8;
        for (int i = 0; i < entries; ++i) {
            if (next != 0) {
                const unsigned code = bits.number(); // of a signed number
                const std::int64_t delta =
                    code % 2 == 1 ? std::int64_t{code / 2} + 1 : -std::int64_t{code / 2};
                next = static_cast<unsigned>(std::int64_t{last} + delta) & 255;
            }
            last = next == 0 ? last : next;
        }
    }
}

// RFC names: profile_idc values with a chroma format.
bool hasChroma(unsigned profile) {
    for (const unsigned one : {100U, 110U, 122U, 244U, 44U, 83U, 86U, 118U, 128U, 138U, 139U, 134U, 135U}) {
        if (profile == one)
            return true;
    }
    return false;
}

std::optional<PictureSize> sizeOfH264(std::string_view set) {
    Bits bits(set.substr(1));
    const unsigned profile = bits.take(8);
    bits.skip(16); // constraints and level
    bits.number(); // its id
    unsigned chroma = 1;
    if (hasChroma(profile)) {
        chroma = bits.number();
        if (chroma == 3)
            bits.skip(1);
        bits.number(); // bit depths
        bits.number();
        bits.skip(1);
        if (bits.take(1) != 0)
            skipScalingLists(bits, chroma);
    }
    bits.number(); // log2_max_frame_num_minus4
    if (const unsigned order = bits.number(); order == 0) {
        bits.number();
    } else if (order == 1) {
        bits.skip(1);
        bits.number();
        bits.number();
        const unsigned frames = bits.number();
        for (unsigned i = 0; i < frames && i < 256 && bits.good(); ++i)
            bits.number();
    }
    bits.number(); // reference frames
    bits.skip(1);
    const unsigned columns = bits.number() + 1;
    const unsigned rows = bits.number() + 1;
    const unsigned fields = bits.take(1) != 0 ? 1 : 2;
    if (fields == 2)
        bits.skip(1);
    bits.skip(1);
    unsigned crop[4] = {0, 0, 0, 0}; // left, right, top, bottom
    if (bits.take(1) != 0) {
        for (unsigned& side : crop)
            side = bits.number();
    }
    if (columns > largest / 16 || rows > largest / 16 || (crop[0] | crop[1] | crop[2] | crop[3]) > largest)
        return std::nullopt;
    const unsigned across = chroma == 1 || chroma == 2 ? 2 : 1;
    const unsigned down = (chroma == 1 ? 2 : 1) * fields;
    return checked(bits, columns * 16 - across * (crop[0] + crop[1]),
                   rows * 16 * fields - down * (crop[2] + crop[3]));
}

std::optional<PictureSize> sizeOfH265(std::string_view set) {
    Bits bits(set.substr(2));
    bits.skip(4);
    const unsigned layers = bits.take(3); // sub-layers below the highest one
    bits.skip(1);
    bits.skip(88); // the general profile
    bits.skip(8);  // its level
    unsigned present[8][2] = {};
    for (unsigned i = 0; i < layers; ++i) {
        present[i][0] = bits.take(1);
        present[i][1] = bits.take(1);
    }
    if (layers > 0)
        bits.skip(static_cast<int>(2 * (8 - layers)));
    for (unsigned i = 0; i < layers; ++i)
        bits.skip((present[i][0] != 0 ? 88 : 0) + (present[i][1] != 0 ? 8 : 0));
    bits.number(); // its id
    const unsigned chroma = bits.number();
    if (chroma == 3)
        bits.skip(1);
    const unsigned width = bits.number();
    const unsigned height = bits.number();
    unsigned crop[4] = {0, 0, 0, 0};
    if (bits.take(1) != 0) {
        for (unsigned& side : crop)
            side = bits.number();
    }
    if (width > largest || height > largest || (crop[0] | crop[1] | crop[2] | crop[3]) > largest)
        return std::nullopt;
    const unsigned across = chroma == 1 || chroma == 2 ? 2 : 1;
    const unsigned down = chroma == 1 ? 2 : 1;
    return checked(bits, width - across * (crop[0] + crop[1]), height - down * (crop[2] + crop[3]));
}

// The bytes behind a start code whose code is in this range; nothing when there is none.
std::string_view behindStartCode(std::string_view bytes, unsigned first, unsigned last) {
    constexpr std::string_view startCode("\0\0\1", 3);
    for (std::size_t at = bytes.find(startCode); at != std::string_view::npos && at + 4 < bytes.size();
         at = bytes.find(startCode, at + 3)) {
        const unsigned code = static_cast<std::uint8_t>(bytes[at + 3]);
        if (code >= first && code <= last)
            return bytes.substr(at + 4);
    }
    return {};
}

// A video object layer of ISO 14496-2, if it is rectangular.
std::optional<PictureSize> sizeOfMpeg4(std::string_view layer) {
    Bits bits(layer, false);
    bits.skip(9); // random access, type
    unsigned version = 1;
    if (bits.take(1) != 0) {
        version = bits.take(4);
        bits.skip(3);
    }
    if (bits.take(4) == 15) // pixels of their own shape
        bits.skip(16);
    if (bits.take(1) != 0) { // control parameters
        bits.skip(3);
        if (bits.take(1) != 0)
            bits.skip(79);
    }
    const unsigned shape = bits.take(2);
    bits.skip(version == 1 || shape == 0 ? 1 : 0);
    const unsigned ticks = bits.take(16);
    bits.skip(1);
    if (bits.take(1) != 0) { // a fixed rate, in as many bits as the ticks need
        for (unsigned left = ticks > 1 ? ticks - 1 : 1; left > 0; left >>= 1)
            bits.skip(1);
    }
    if (shape != 0)
        return std::nullopt;
    bits.skip(1);
    const unsigned width = bits.take(13);
    bits.skip(1);
    return checked(bits, width, bits.take(13));
}

// A sequence header of ISO 13818-2.
std::optional<PictureSize> sizeOfMpeg2(std::string_view header) {
    if (header.size() < 3)
        return std::nullopt;
    const auto byte = [&](std::size_t at) { return unsigned{static_cast<std::uint8_t>(header[at])}; };
    const unsigned width = byte(0) << 4 | byte(1) >> 4;
    const unsigned height = (byte(1) & 15) << 8 | byte(2);
    return width == 0 || height == 0
               ? std::nullopt
               : std::optional(PictureSize{static_cast<int>(width), static_cast<int>(height)});
}

} // namespace

std::optional<PictureSize> sizeInFormat(Encoding encoding, std::string_view fmtp) {
    constexpr std::string_view name = "config=";
    const std::size_t at = fmtp.find(name);
    if (encoding != Encoding::mpeg4 || at == std::string_view::npos)
        return std::nullopt;
    std::string bytes;
    for (std::size_t i = at + name.size(); i + 1 < fmtp.size(); i += 2) {
        unsigned value = 0;
        const auto [end, error] = std::from_chars(fmtp.data() + i, fmtp.data() + i + 2, value, 16);
        if (error != std::errc{} || end != fmtp.data() + i + 2)
            break;
        bytes += static_cast<char>(value);
    }
    return sizeInPayload(encoding, bytes);
}

std::optional<PictureSize> sizeOfSet(Encoding encoding, std::string_view set) {
    if (set.size() < 4)
        return std::nullopt;
    const auto first = static_cast<std::uint8_t>(set[0]);
    if (encoding == Encoding::h264 && (first & 31) == h264Sequence)
        return sizeOfH264(set);
    if (encoding == Encoding::h265 && (first >> 1 & 63) == h265Sequence)
        return sizeOfH265(set);
    return std::nullopt;
}

std::optional<PictureSize> sizeInPayload(Encoding encoding, std::string_view payload) {
    std::optional<PictureSize> size;
    if (encoding == Encoding::jpeg && payload.size() >= 8) {
        const PictureSize found{static_cast<std::uint8_t>(payload[6]) * 8,
                                static_cast<std::uint8_t>(payload[7]) * 8};
        if (found.width > 0 && found.height > 0)
            size = found;
    }
    if (encoding == Encoding::mpeg4) {
        if (const std::string_view layer = behindStartCode(payload, 0x20, 0x2f); !layer.empty())
            size = sizeOfMpeg4(layer);
    }
    if (encoding == Encoding::mpeg2) {
        if (const std::string_view header = behindStartCode(payload, 0xb3, 0xb3); !header.empty())
            size = sizeOfMpeg2(header);
    }
    parameterSetsIn(encoding, payload, [&](std::string_view set) {
        if (const auto found = sizeOfSet(encoding, set))
            size = found;
    });
    return size;
}

} // namespace streams
