#include "appliance/gateway/rtp/picture_size.h"

#include <cstdint>
#include <string>

namespace gateway {
namespace {

constexpr int h264Sequence = 7;
constexpr int h265Sequence = 33;
constexpr unsigned largest = 16384;

// Reads the bits of a NAL unit. Behind the end it reads zeros and is no longer good.
class Bits {
public:
    // Without the bytes that only prevent start codes.
    explicit Bits(std::string_view unit) {
        int zeros = 0;
        for (const char c : unit) {
            if (zeros >= 2 && c == 3) {
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

} // namespace

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
    parameterSetsIn(encoding, payload, [&](std::string_view set) {
        if (const auto found = sizeOfSet(encoding, set))
            size = found;
    });
    return size;
}

} // namespace gateway
