#include "appliance/gateway/warm/mpeg2_pieces.h"

#include "appliance/gateway/warm/transport_packets.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr std::string_view startCode("\0\0\1", 3);
constexpr std::uint8_t pictureCode = 0x00;
constexpr std::uint8_t sequenceCode = 0xb3;
constexpr std::uint8_t groupCode = 0xb8;
constexpr std::uint8_t packCode = 0xba;
constexpr char syncByte = 0x47;

} // namespace

void Mpeg2Pieces::feed(std::string_view bytes) {
    waiting_ += bytes;
    if (!container_) {
        if (waiting_.size() < streams::containerBytes)
            return;
        container_ = streams::containerOf(waiting_);
    }
    if (container_ == streams::Mpeg2Container::transport)
        cutAtPackets();
    else
        cutAtCodes();
}

// Passes on the first `count` bytes that wait.
void Mpeg2Pieces::flush(std::size_t count) {
    if (count == 0)
        return;
    KeptItem item;
    item.kind = streams::KeptFrame::bytes;
    item.bytes = std::make_shared<const std::string>(waiting_, 0, count);
    item.unit = unit_;
    item.key = std::exchange(key_, false);
    item.newPicture = std::exchange(newPicture_, false);
    item.before = std::exchange(before_, nullptr);
    waiting_.erase(0, count);
    take_(item);
}

void Mpeg2Pieces::cutAtCodes() {
    std::size_t at = waiting_.find(startCode, searched_);
    while (at != std::string::npos && at + 3 < waiting_.size()) {
        const std::size_t before = waiting_.size();
        atCode(at, static_cast<std::uint8_t>(waiting_[at + 3]));
        searched_ = at + 3 - (before - waiting_.size());
        at = waiting_.find(startCode, searched_);
    }
    // A start code may begin in the last three bytes.
    const std::size_t rest =
        at != std::string::npos ? waiting_.size() - at : std::min<std::size_t>(waiting_.size(), 2);
    flush(waiting_.size() - rest);
    searched_ = 0;
}

// In a program stream, packs are the units: a sequence header within one tells that a player can begin with the pack.
void Mpeg2Pieces::atCode(std::size_t at, std::uint8_t code) {
    const bool program = container_ == streams::Mpeg2Container::program;
    const bool header = code == sequenceCode || code == groupCode;
    const bool picture = code == pictureCode;
    if (code != packCode && !header && !picture)
        return;
    const bool begins = !inHeaders_ && (header || picture);
    if (program ? code == packCode || code == sequenceCode : begins) {
        flush(at);
        unit_ += !program || code == packCode ? 1 : 0;
    }
    key_ = key_ || code == sequenceCode;
    newPicture_ = newPicture_ || begins;
    inHeaders_ = header || (inHeaders_ && !picture);
}

void Mpeg2Pieces::cutAtPackets() {
    // In step again after lost bytes.
    waiting_.erase(0, std::min(waiting_.find(syncByte), waiting_.size()));
    while (waiting_.size() > transportBytes && waiting_[transportBytes] != syncByte)
        waiting_.erase(0, std::min(waiting_.find(syncByte, 1), waiting_.size()));
    std::size_t begun = 0;
    while (waiting_.size() - begun >= transportBytes) {
        const std::string_view packet(waiting_.data() + begun, transportBytes);
        if (beginsPicture(packet)) {
            flush(begun);
            begun = 0;
            takePacket({waiting_.data(), transportBytes});
        } else if (hasTable(packet)) {
            (packetIdOf(packet) == 0 ? programs_ : streams_) = packet;
        }
        begun += transportBytes;
    }
    flush(begun);
}

// A video picture begins in it.
void Mpeg2Pieces::takePacket(std::string_view packet) {
    ++unit_;
    newPicture_ = true;
    if (!beginsKeyPicture(packet))
        return;
    key_ = true;
    if (!programs_.empty())
        before_ = std::make_shared<const std::string>(programs_ + streams_);
}

} // namespace gateway
