#include "appliance/streams/elementary_reader.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace streams {
namespace {

constexpr std::size_t npos = std::string_view::npos;
constexpr std::string_view startCode("\0\0\1", 3);
constexpr std::size_t packetBytes = 188;
constexpr char syncByte = 0x47;
constexpr int packHeader = 0xba;
constexpr int firstStream = 0xbb; // the first identifier of a packet with a length
constexpr int firstVideo = 0xe0;
constexpr int lastVideo = 0xef;

std::size_t byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<std::uint8_t>(bytes[at]);
}

bool isVideo(std::size_t id) {
    return id >= firstVideo && id <= lastVideo;
}

// The length of a video packet's header, from its start code to its payload; 0: more bytes are needed. MPEG-1 has another
// form than MPEG-2.
std::size_t headerLength(std::string_view packet) {
    constexpr std::size_t fixed = 9;
    constexpr std::size_t longest = 64; // of an MPEG-1 header with all its stuffing
    if (packet.size() < fixed)
        return 0;
    if ((byteAt(packet, 6) & 0xc0) == 0x80)
        return fixed + byteAt(packet, 8);
    std::size_t at = 6;
    while (at < packet.size() && at < longest && byteAt(packet, at) == 0xff)
        ++at;
    if (at < packet.size() && (byteAt(packet, at) & 0xc0) == 0x40)
        at += 2;
    if (at >= packet.size())
        return 0;
    const std::size_t times = byteAt(packet, at) >> 4;
    return at + (times == 2 ? 5 : times == 3 ? 10 : 1);
}

} // namespace

ElementaryReader::ElementaryReader(Mpeg2Container container, Take take)
    : container_(container), take_(std::move(take)) {}

void ElementaryReader::feed(std::string_view bytes) {
    if (container_ == Mpeg2Container::elementary)
        return take_(bytes);
    buffer_.append(bytes);
    while (container_ == Mpeg2Container::program ? stepProgram() : stepTransport()) {
    }
    buffer_.erase(0, start_);
    start_ = 0;
}

// False: more bytes are needed.
bool ElementaryReader::stepProgram() {
    std::string_view bytes = waiting();
    if (left_ > 0) {
        const std::size_t count = std::min(left_, bytes.size());
        if (count > 0)
            take_(bytes.substr(0, count));
        left_ -= count;
        drop(count);
        return left_ == 0;
    }
    const std::size_t code = bytes.find(startCode);
    drop(code == npos ? bytes.size() - std::min<std::size_t>(bytes.size(), 2) : code);
    bytes = waiting();
    if (code == npos || bytes.size() < 6)
        return false;
    const std::size_t id = byteAt(bytes, 3);
    if (id < firstStream) { // a pack header, or a start code of damaged video
        drop(4);
        return true;
    }
    const std::size_t length = 6 + (byteAt(bytes, 4) << 8 | byteAt(bytes, 5));
    if (!isVideo(id)) {
        if (bytes.size() < length)
            return false;
        drop(length);
        return true;
    }
    const std::size_t header = headerLength(bytes);
    if (header == 0 || bytes.size() < header)
        return false;
    left_ = length > header ? length - header : 0;
    drop(std::min(header, std::max(length, std::size_t{6})));
    return true;
}

bool ElementaryReader::stepTransport() {
    std::string_view bytes = waiting();
    const std::size_t sync = bytes.find(syncByte);
    drop(std::min(sync, bytes.size()));
    bytes = waiting();
    if (bytes.size() < packetBytes + 1) // with the next packet's first byte
        return false;
    if (bytes[packetBytes] != syncByte) {
        drop(1);
        return true;
    }
    takeTransportPacket(bytes.substr(0, packetBytes));
    drop(packetBytes);
    return true;
}

void ElementaryReader::takeTransportPacket(std::string_view packet) {
    const bool begins = (byteAt(packet, 1) & 0x40) != 0;
    const int pid = static_cast<int>((byteAt(packet, 1) & 0x1f) << 8 | byteAt(packet, 2));
    const std::size_t control = byteAt(packet, 3) >> 4 & 3;
    if ((control & 1) == 0)
        return; // no payload
    const std::size_t header = 4 + ((control & 2) != 0 ? 1 + byteAt(packet, 4) : 0);
    if (header >= packet.size())
        return;
    const std::string_view payload = packet.substr(header);
    if (pid_ < 0 && begins && payload.size() > 4 && payload.starts_with(startCode) &&
        isVideo(byteAt(payload, 3)))
        pid_ = pid;
    if (pid == pid_)
        takeVideo(payload, begins);
}

void ElementaryReader::takeVideo(std::string_view payload, bool begins) {
    const std::size_t header = begins ? headerLength(payload) : 0;
    inVideo_ = begins ? header > 0 : inVideo_;
    if (inVideo_ && header < payload.size())
        take_(payload.substr(header));
}

} // namespace streams
