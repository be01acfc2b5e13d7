#include "appliance/input/depacketizer.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

namespace input {
namespace {

constexpr std::size_t largestPicture = 16 * 1024 * 1024;
constexpr std::size_t headerSize = 12;

unsigned byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}
bool bitAt(std::string_view bytes, std::size_t at, unsigned mask) {
    return (byteAt(bytes, at) & mask) != 0;
}

struct Packet {
    bool last = false; // of its picture
    std::uint16_t sequence = 0;
    std::uint32_t stamp = 0;
    std::string_view payload;
};

std::optional<Packet> readPacket(std::string_view bytes) {
    if (bytes.size() < headerSize || byteAt(bytes, 0) >> 6 != 2)
        return std::nullopt;
    std::size_t start = headerSize + 4 * std::size_t{byteAt(bytes, 0) & 15};
    if (bitAt(bytes, 0, 0x10)) {
        if (start + 4 > bytes.size())
            return std::nullopt;
        start += 4 + 4 * std::size_t{byteAt(bytes, start + 2) << 8 | byteAt(bytes, start + 3)};
    }
    const std::size_t padding = bitAt(bytes, 0, 0x20) ? byteAt(bytes, bytes.size() - 1) : 0;
    if (start + padding > bytes.size())
        return std::nullopt;
    return Packet{bitAt(bytes, 1, 0x80), static_cast<std::uint16_t>(byteAt(bytes, 2) << 8 | byteAt(bytes, 3)),
                  byteAt(bytes, 4) << 24 | byteAt(bytes, 5) << 16 | byteAt(bytes, 6) << 8 | byteAt(bytes, 7),
                  bytes.substr(start, bytes.size() - start - padding)};
}

class Vp8 : public Depacketizer {
public:
    explicit Vp8(Take take) : Depacketizer(std::move(take)) {}

private:
    bool begins(std::string_view payload) const override {
        return !payload.empty() && bitAt(payload, 0, 0x10) && (byteAt(payload, 0) & 7) == 0;
    }
    bool unpack(std::string_view payload, std::string& picture) override {
        std::size_t length = 1;
        if (payload.size() > 1 && bitAt(payload, 0, 0x80)) { // more fields
            const unsigned more = byteAt(payload, 1);
            length = 2;
            if ((more & 0x80) != 0 && payload.size() > 2)
                length += bitAt(payload, 2, 0x80) ? 2 : 1; // the picture's number
            length += (more & 0x40) != 0 ? 1 : 0;
            length += (more & 0x30) != 0 ? 1 : 0;
        }
        if (length >= payload.size())
            return false;
        picture.append(payload.substr(length));
        return true;
    }
};

class Vp9 : public Depacketizer {
public:
    explicit Vp9(Take take) : Depacketizer(std::move(take)) {}

private:
    static constexpr unsigned hasNumber = 0x80;
    static constexpr unsigned predicted = 0x40;
    static constexpr unsigned hasLayers = 0x20;
    static constexpr unsigned flexible = 0x10;
    static constexpr unsigned hasStructure = 0x02;

    bool begins(std::string_view payload) const override {
        return !payload.empty() && bitAt(payload, 0, 0x08);
    }
    bool unpack(std::string_view payload, std::string& picture) override {
        const unsigned flags = payload.empty() ? 0 : byteAt(payload, 0);
        std::size_t at = 1;
        const auto next = [&] { return at < payload.size() ? byteAt(payload, at++) : (++at, 0U); };
        if ((flags & hasNumber) != 0 && (next() & 0x80) != 0)
            next();
        if ((flags & hasLayers) != 0) {
            next();
            if ((flags & flexible) == 0)
                next();
        }
        if ((flags & flexible) != 0 && (flags & predicted) != 0) {
            for (int i = 0; i < 3 && (next() & 1) != 0; ++i) {
            }
        }
        if ((flags & hasStructure) != 0) {
            const unsigned structure = next();
            at += (structure & 0x10) != 0 ? 4 * (std::size_t{structure >> 5} + 1) : 0;
            for (unsigned left = (structure & 0x08) != 0 ? next() : 0; left > 0; --left)
                at += next() >> 2 & 3;
        }
        if (at >= payload.size())
            return false;
        picture.append(payload.substr(at));
        return true;
    }
};

// The packets have parts of OBUs without their lengths; the decoder wants whole ones with lengths.
class Av1 : public Depacketizer {
public:
    explicit Av1(Take take) : Depacketizer(std::move(take)) {}

private:
    static constexpr unsigned continues = 0x80;   // the first part goes on with an OBU
    static constexpr unsigned continued = 0x40;   // the last part's OBU goes on in the next packet
    static constexpr unsigned delimiter = 2 << 3; // OBU types in a header
    static constexpr unsigned tileList = 8 << 3;
    static constexpr unsigned typeBits = 0x78;
    static constexpr unsigned hasExtension = 0x04;
    static constexpr unsigned hasSize = 0x02;

    bool begins(std::string_view payload) const override {
        return !payload.empty() && !bitAt(payload, 0, continues);
    }
    void reset() override { part_.clear(); }

    bool unpack(std::string_view payload, std::string& picture) override {
        if (payload.empty())
            return false;
        const unsigned header = byteAt(payload, 0);
        const unsigned count = header >> 4 & 3; // 0: every part has a length
        payload.remove_prefix(1);
        if (((header & continues) != 0) == part_.empty())
            return false;
        for (unsigned i = 1; !payload.empty(); ++i) {
            std::size_t length = payload.size();
            if ((count == 0 || i < count) && !takeLength(payload, length))
                return false;
            if (length > payload.size())
                return false;
            part_.append(payload.substr(0, length));
            payload.remove_prefix(length);
            if (!payload.empty() || (header & continued) == 0)
                finish(picture);
        }
        return true;
    }

    static bool takeLength(std::string_view& bytes, std::size_t& length) {
        length = 0;
        for (unsigned shift = 0; shift < 28 && !bytes.empty(); shift += 7) {
            const unsigned byte = byteAt(bytes, 0);
            bytes.remove_prefix(1);
            length |= std::size_t{byte & 127} << shift;
            if ((byte & 128) == 0)
                return true;
        }
        return false;
    }

    void finish(std::string& picture) {
        const std::string part = std::exchange(part_, {});
        if (part.empty())
            return;
        const unsigned header = byteAt(part, 0);
        if ((header & typeBits) == delimiter || (header & typeBits) == tileList)
            return;
        if ((header & hasSize) != 0) {
            picture += part;
            return;
        }
        const std::size_t head = (header & hasExtension) != 0 ? 2 : 1;
        if (part.size() < head)
            return;
        picture += static_cast<char>(header | hasSize);
        picture += part.substr(1, head - 1);
        for (std::size_t left = part.size() - head;; left >>= 7) {
            picture += static_cast<char>((left & 127) | (left > 127 ? 128 : 0));
            if (left <= 127)
                break;
        }
        picture += part.substr(head);
    }

    void complete(std::string& picture) override {
        if (!picture.empty())
            picture.insert(0, {static_cast<char>(delimiter | hasSize), 0});
    }

    std::string part_; // an OBU that the next packet continues
};

} // namespace

std::unique_ptr<Depacketizer> Depacketizer::make(std::string_view codec, Take take) {
    if (codec == "VP8")
        return std::make_unique<Vp8>(std::move(take));
    if (codec == "VP9")
        return std::make_unique<Vp9>(std::move(take));
    if (codec == "AV1")
        return std::make_unique<Av1>(std::move(take));
    return nullptr;
}

std::int64_t Depacketizer::timeOf(std::uint32_t stamp) {
    time_ += static_cast<std::int32_t>(stamp - stamp_);
    stamp_ = stamp;
    return time_;
}

void Depacketizer::begin(std::uint32_t stamp) {
    timeOf(stamp);
    picture_.clear();
    reset();
    good_ = true;
}

void Depacketizer::add(std::string_view bytes) {
    const auto packet = readPacket(bytes);
    if (!packet || packet->payload.empty())
        return;
    if (!started_)
        stamp_ = packet->stamp;
    const bool follows = started_ && packet->sequence == static_cast<std::uint16_t>(sequence_ + 1);
    const bool fresh = !started_ || packet->stamp != stamp_ || !good_;
    started_ = true;
    sequence_ = packet->sequence;
    if (fresh && begins(packet->payload))
        begin(packet->stamp);
    else if (fresh || !follows)
        good_ = false;
    if (good_ && (!unpack(packet->payload, picture_) || picture_.size() > largestPicture))
        good_ = false;
    if (!packet->last)
        return;
    if (std::exchange(good_, false)) {
        complete(picture_);
        if (!picture_.empty())
            take_(picture_, time_);
    }
}

} // namespace input
