#include "appliance/gateway/rtp/payload_kind.h"

#include <cstdint>

namespace gateway {
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

// One NAL unit's type and what it means.
struct Unit {
    bool set;
    bool key;
    bool picture;
};

Unit h264Unit(int type) {
    return {type == h264Sequence || type == h264Picture, type == h264Key, type >= 1 && type <= h264Key};
}

Unit h265Unit(int type) {
    return {type >= h265FirstSet && type <= h265LastSet, type >= h265FirstKey && type <= h265LastKey,
            type < h265FirstSet};
}

void add(PayloadKind& kind, const Unit& unit) {
    kind.keyPicture = kind.keyPicture || unit.key || unit.set;
    kind.parameterSet = kind.parameterSet || unit.set;
    kind.picture = kind.picture || unit.picture;
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

PayloadKind kindOfH264(std::string_view payload) {
    PayloadKind kind;
    const int type = payload.empty() ? 0 : byteAt(payload, 0) & 31;
    if (type == h264Aggregate) {
        unitsIn(payload, 1, [&](std::string_view unit) { add(kind, h264Unit(byteAt(unit, 0) & 31)); });
    } else if (type == h264Fragment && payload.size() > 1) {
        const bool begins = (byteAt(payload, 1) & 0x80) != 0;
        kind.keyPicture = begins && h264Unit(byteAt(payload, 1) & 31).key;
        kind.picture = true;
    } else {
        add(kind, h264Unit(type));
    }
    return kind;
}

PayloadKind kindOfH265(std::string_view payload) {
    PayloadKind kind;
    if (payload.size() < 2)
        return kind;
    const int type = byteAt(payload, 0) >> 1 & 63;
    if (type == h265Aggregate) {
        unitsIn(payload, 2, [&](std::string_view unit) { add(kind, h265Unit(byteAt(unit, 0) >> 1 & 63)); });
    } else if (type == h265Fragment && payload.size() > 2) {
        const bool begins = (byteAt(payload, 2) & 0x80) != 0;
        kind.keyPicture = begins && h265Unit(byteAt(payload, 2) & 63).key;
        kind.picture = true;
    } else {
        add(kind, h265Unit(type));
    }
    return kind;
}

// MPEG-4 Visual: start codes in the payload. A picture's start code is followed by two bits with its type, 0 for a key
// picture.
PayloadKind kindOfMpeg4(std::string_view payload) {
    constexpr std::string_view startCode("\0\0\1", 3);
    constexpr int pictureCode = 0xb6;
    constexpr int sequenceCode = 0xb0;
    PayloadKind kind{.keyPicture = false, .parameterSet = false, .picture = true};
    for (std::size_t at = payload.find(startCode); at != std::string_view::npos && at + 4 < payload.size();
         at = payload.find(startCode, at + 3)) {
        const int code = byteAt(payload, at + 3);
        if (code == pictureCode) {
            kind.keyPicture = kind.keyPicture || byteAt(payload, at + 4) >> 6 == 0;
            return kind;
        }
        kind.keyPicture = kind.keyPicture || code == sequenceCode;
    }
    return kind;
}

// RFC 2435: bytes 1 to 3 are the offset within the picture, and every picture is a key picture.
PayloadKind kindOfJpeg(std::string_view payload) {
    const bool begins = payload.size() >= 4 && payload.substr(1, 3) == std::string_view("\0\0\0", 3);
    return {.keyPicture = begins, .parameterSet = false, .picture = true};
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
    return {.keyPicture = told || headerAt(4) || headerAt(8), .parameterSet = false, .picture = true};
}

bool isParameterSet(Encoding encoding, std::string_view unit) {
    const int first = byteAt(unit, 0);
    return encoding == Encoding::h264 ? h264Unit(first & 31).set : h265Unit(first >> 1 & 63).set;
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
    return {.keyPicture = false, .parameterSet = false, .picture = true};
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

} // namespace gateway
