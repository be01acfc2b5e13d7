// Cuts an MPEG-2 stream that comes over HTTP into pieces, so that a player can begin at a key picture: an elementary,
// program or transport stream.
#pragma once

#include "appliance/gateway/warm/kept_group.h"
#include "appliance/streams/mpeg2_container.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace gateway {

// Every byte is passed on, in order, and soon: at most three bytes (a transport stream: one packet) wait for the next
// ones. For one thread.
class Mpeg2Pieces {
public:
    using Take = std::function<void(const KeptItem& item)>;
    explicit Mpeg2Pieces(Take take) : take_(std::move(take)) {}

    void feed(std::string_view bytes);

private:
    void cutAtCodes();
    void atCode(std::size_t at, std::uint8_t code);
    void cutAtPackets();
    void takePacket(std::string_view packet);
    void flush(std::size_t count);

    const Take take_;
    std::optional<streams::Mpeg2Container> container_; // nothing: too few bytes have come
    std::string waiting_;
    std::size_t searched_ = 0; // no start code begins in waiting_ before this

    std::uint64_t unit_ = 0;
    bool key_ = false;        // of the piece that waiting_ begins with
    bool newPicture_ = false; // likewise
    bool inHeaders_ = false;  // a sequence or group header came, and its picture not yet
    std::string programs_;    // transport: the last packets with the two tables
    std::string streams_;
    streams::Packet before_; // both, for the piece that waiting_ begins with
};

} // namespace gateway
