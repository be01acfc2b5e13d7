#include "appliance/streams/rtp/payload_kind.h"

#include <algorithm>
#include <cstdint>

namespace streams {
namespace {

constexpr int h264Key = 5;
constexpr int h264Sequence = 7;
constexpr int h264Picture = 8;
constexpr int h264Aggregate = 24; // STAP-A
constexpr int h264Fragment = 28;  // FU-A
constexpr int h265FirstKey = 16;  // the range of random access pictures
constexpr int h265LastKey = 21;
constexpr int h265FirstSet = 32; // video, sequence and picture parameter set
constexpr int h265LastSet = 34;
constexpr int h265Aggregate = 48;
constexpr int h265Fragment = 49;

std::uint8_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

// What a NAL unit means, by its type and the bytes behind its header, as far as they are in the packet.
struct Unit {
    bool set = false;
    bool key = false;
    bool picture = false;
    bool prefix = false;
    bool recoveryPoint = false;
    bool intra = false;
};

// Reads unsigned Exp-Golomb numbers at the start of a slice. 0 beyond the end.
class Numbers {
public:
    explicit Numbers(std::string_view bytes) : bytes_(bytes) {}
    unsigned next() {
        int zeros = 0;
        while (zeros < 32 && at_ < bytes_.size() * 8 && !bit())
            ++zeros;
        unsigned rest = 0;
        for (int i = 0; i < zeros && i < 31; ++i)
            rest = rest << 1 | (bit() ? 1U : 0U);
        return zeros < 32 ? (1U << zeros) - 1 + rest : 0;
    }

private:
    bool bit() {
        const std::size_t at = at_++;
        return at < bytes_.size() * 8 && (byteAt(bytes_, at / 8) >> (7 - at % 8) & 1) != 0;
    }
    std::string_view bytes_;
    std::size_t at_ = 0;
};

// Whether an H.264 slice refers to no other picture: the second number of its header is the type.
bool isIntraSlice(std::string_view begin) {
    constexpr unsigned i = 2;
    constexpr unsigned si = 4;
    constexpr unsigned types = 5; // 5 to 9 are the same again: all slices of the picture have that type
    Numbers numbers(begin);
    numbers.next(); // the first macroblock
    const unsigned type = numbers.next() % types;
    return type == i || type == si;
}

// A SEI unit is a list of messages: type and length, each a number of bytes 255 and a last one, and that many bytes.
bool hasRecoveryPoint(std::string_view messages) {
    constexpr unsigned recoveryPoint = 6;
    const auto number = [&] {
        unsigned sum = 0;
        bool more = true;
        while (more && !messages.empty()) {
            sum += byteAt(messages, 0);
            more = byteAt(messages, 0) == 255;
            messages.remove_prefix(1);
        }
        return sum;
    };
    while (messages.size() > 2) {
        if (number() == recoveryPoint)
            return true;
        const std::size_t length = number(); // taken before the size is asked for: it shortens the messages
        messages.remove_prefix(std::min(length, messages.size()));
    }
    return false;
}

Unit h264Unit(int type, std::string_view begin) {
    constexpr int sei = 6;
    constexpr int delimiter = 9;
    Unit unit;
    unit.set = type == h264Sequence || type == h264Picture;
    unit.key = type == h264Key;
    unit.picture = type >= 1 && type <= h264Key;
    unit.prefix = type >= sei && type <= delimiter;
    unit.recoveryPoint = type == sei && hasRecoveryPoint(begin);
    unit.intra = unit.key || (unit.picture && isIntraSlice(begin));
    return unit;
}

Unit h265Unit(int type, std::string_view begin) {
    constexpr int delimiter = 35;
    constexpr int sei = 39;
    Unit unit;
    unit.set = type >= h265FirstSet && type <= h265LastSet;
    unit.key = type >= h265FirstKey && type <= h265LastKey;
    unit.picture = type < h265FirstSet;
    unit.prefix = unit.set || type == delimiter || type == sei;
    unit.recoveryPoint = type == sei && hasRecoveryPoint(begin);
    unit.intra = unit.key;
    return unit;
}

// A unit with its header in front.
Unit unitOf(Encoding encoding, std::string_view unit) {
    const int first = byteAt(unit, 0);
    if (encoding == Encoding::h264)
        return h264Unit(first & 31, unit.substr(1));
    return h265Unit(first >> 1 & 63, unit.substr(std::min<std::size_t>(2, unit.size())));
}

void add(PayloadKind& kind, const Unit& unit) {
    kind.keyPicture = kind.keyPicture || unit.key || unit.set;
    kind.parameterSet = kind.parameterSet || unit.set;
    kind.picture = kind.picture || unit.picture;
    kind.prefix = kind.prefix || unit.prefix;
    kind.recoveryPoint = kind.recoveryPoint || unit.recoveryPoint;
    kind.whole = kind.whole || unit.key;
    kind.intra = kind.intra || unit.intra;
}

// Calls `take` for each NAL unit of an aggregation packet; `header` is the number of bytes before the first one.
void unitsIn(std::string_view payload, std::size_t header,
             const std::function<void(std::string_view)>& take) {
    payload.remove_prefix(header);
    while (payload.size() > 2) {
        const std::size_t length = static_cast<std::size_t>(byteAt(payload, 0)) << 8 | byteAt(payload, 1);
        payload.remove_prefix(2);
        if (length == 0 || length > payload.size())
            return;
        take(payload.substr(0, length));
        payload.remove_prefix(length);
    }
}

// A unit that is sent in several packets. Only the first one tells what it is; `unit` is read from that one.
PayloadKind kindOfFragment(bool begins, const Unit& unit) {
    PayloadKind kind;
    if (begins)
        add(kind, unit);
    kind.parameterSet = false; // a part of one is of no use
    kind.prefix = kind.prefix && begins;
    kind.picture = !kind.prefix;
    return kind;
}

PayloadKind kindOfH264(std::string_view payload) {
    PayloadKind kind;
    const int type = payload.empty() ? 0 : byteAt(payload, 0) & 31;
    if (type == h264Aggregate) {
        unitsIn(payload, 1, [&](std::string_view unit) { add(kind, unitOf(Encoding::h264, unit)); });
    } else if (type == h264Fragment && payload.size() > 1) {
        const bool begins = (byteAt(payload, 1) & 0x80) != 0;
        return kindOfFragment(begins, h264Unit(byteAt(payload, 1) & 31, payload.substr(2)));
    } else if (!payload.empty()) {
        add(kind, unitOf(Encoding::h264, payload));
    }
    kind.prefix = kind.prefix && !kind.picture;
    return kind;
}

PayloadKind kindOfH265(std::string_view payload) {
    PayloadKind kind;
    if (payload.size() < 2)
        return kind;
    const int type = byteAt(payload, 0) >> 1 & 63;
    if (type == h265Aggregate) {
        unitsIn(payload, 2, [&](std::string_view unit) { add(kind, unitOf(Encoding::h265, unit)); });
    } else if (type == h265Fragment && payload.size() > 2) {
        const bool begins = (byteAt(payload, 2) & 0x80) != 0;
        return kindOfFragment(begins, h265Unit(byteAt(payload, 2) & 63, payload.substr(3)));
    } else {
        add(kind, unitOf(Encoding::h265, payload));
    }
    kind.prefix = kind.prefix && !kind.picture;
    return kind;
}

// MPEG-4 Visual: start codes in the payload. A picture's start code is followed by two bits with its type, 0 for a key
// picture.
PayloadKind kindOfMpeg4(std::string_view payload) {
    constexpr std::string_view startCode("\0\0\1", 3);
    constexpr int pictureCode = 0xb6;
    constexpr int sequenceCode = 0xb0;
    PayloadKind kind;
    kind.picture = true;
    for (std::size_t at = payload.find(startCode); at != std::string_view::npos && at + 4 < payload.size();
         at = payload.find(startCode, at + 3)) {
        const int code = byteAt(payload, at + 3);
        if (code == pictureCode) {
            kind.keyPicture = kind.keyPicture || byteAt(payload, at + 4) >> 6 == 0;
            break;
        }
        kind.keyPicture = kind.keyPicture || code == sequenceCode;
    }
    kind.whole = kind.intra = kind.keyPicture;
    return kind;
}

// RFC 2435: bytes 1 to 3 are the offset within the picture, and every picture is a key picture.
PayloadKind kindOfJpeg(std::string_view payload) {
    const bool begins = payload.size() >= 4 && payload.substr(1, 3) == std::string_view("\0\0\0", 3);
    PayloadKind kind;
    kind.keyPicture = kind.whole = kind.intra = begins;
    kind.picture = true;
    return kind;
}

// RFC 2250: the header in front tells in byte 2 whether a sequence header follows. Some senders leave that out, so it is
// looked for, too: it is at the beginning, after four bytes, or eight with the header's extension.
PayloadKind kindOfMpeg2(std::string_view payload) {
    constexpr int sequenceFollows = 0x20;
    constexpr std::string_view sequenceHeader("\0\0\1\xb3", 4);
    const auto headerAt = [&](std::size_t at) {
        return payload.size() > at && payload.substr(at).starts_with(sequenceHeader);
    };
    const bool told = payload.size() >= 4 && (byteAt(payload, 2) & sequenceFollows) != 0;
    PayloadKind kind;
    kind.keyPicture = kind.whole = kind.intra = told || headerAt(4) || headerAt(8);
    kind.picture = true;
    return kind;
}

bool isParameterSet(Encoding encoding, std::string_view unit) {
    return unitOf(encoding, unit).set;
}

} // namespace

Encoding encodingOf(const std::string& name) {
    if (name == "H264")
        return Encoding::h264;
    if (name == "H265")
        return Encoding::h265;
    if (name == "MP4V-ES")
        return Encoding::mpeg4;
    if (name == "JPEG")
        return Encoding::jpeg;
    return name == "MPV" ? Encoding::mpeg2 : Encoding::other;
}

PayloadKind kindOf(Encoding encoding, std::string_view payload) {
    switch (encoding) {
    case Encoding::h264:
        return kindOfH264(payload);
    case Encoding::h265:
        return kindOfH265(payload);
    case Encoding::mpeg4:
        return kindOfMpeg4(payload);
    case Encoding::jpeg:
        return kindOfJpeg(payload);
    case Encoding::mpeg2:
        return kindOfMpeg2(payload);
    case Encoding::other:
        break;
    }
    PayloadKind kind;
    kind.picture = true;
    return kind;
}

void parameterSetsIn(Encoding encoding, std::string_view payload,
                     const std::function<void(std::string_view set)>& take) {
    if ((encoding != Encoding::h264 && encoding != Encoding::h265) || payload.size() < 3)
        return;
    const bool old = encoding == Encoding::h264;
    const int type = old ? byteAt(payload, 0) & 31 : byteAt(payload, 0) >> 1 & 63;
    if (type != (old ? h264Aggregate : h265Aggregate)) {
        if (isParameterSet(encoding, payload))
            take(payload);
        return;
    }
    unitsIn(payload, old ? 1 : 2, [&](std::string_view unit) {
        if (isParameterSet(encoding, unit))
            take(unit);
    });
}

bool knowsKeyPictures(Encoding encoding) {
    return encoding != Encoding::other;
}

} // namespace streams
