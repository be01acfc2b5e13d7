#include "appliance/gateway/rtp/video_relay.h"

#include <utility>

namespace gateway {
namespace {

// Between the sessions of a camera, so that a player's depayloader sees a loss and waits for a whole picture.
constexpr std::uint16_t sessionGap = 100;
constexpr std::int64_t secondUs = 1'000'000;

} // namespace

VideoRelay::VideoRelay(VideoForm form, std::uint32_t source, Take take)
    : form_(std::move(form)), encoding_(encodingOf(form_.encodingName)), source_(source),
      take_(std::move(take)), kept_(form_.keptBytes), sets_(encoding_, form_.fmtp),
      waiting_(knowsKeyPictures(encoding_)) {}

void VideoRelay::beginSession(std::int64_t /*now*/) {
    known_ = false;
    waiting_ = knowsKeyPictures(encoding_);
    hasSets_ = hasKeyTime_ = false;
    kept_.clear();
}

// The first packet of a session, or of another sender in it, goes on where the one before ended.
void VideoRelay::followSender(const RtpPacket& packet, std::int64_t now) {
    if (known_ && packet.source == sender_)
        return;
    known_ = true;
    sender_ = packet.source;
    hasSets_ = hasKeyTime_ = false;
    if (lastAt_ == 0) {
        sequenceShift_ = 0;
        timeShift_ = 0;
        return;
    }
    const std::int64_t passed = (now - lastAt_) * form_.clockRate / secondUs;
    sequenceShift_ = static_cast<std::uint16_t>(lastSequence_ + sessionGap - packet.sequence);
    timeShift_ = lastTime_ + static_cast<std::uint32_t>(passed) + 1 - packet.timestamp;
}

void VideoRelay::add(std::string_view bytes, std::int64_t now) {
    const auto packet = readRtp(bytes);
    if (!packet || packet->payloadType != form_.payloadType)
        return;
    followSender(*packet, now);
    lastAt_ = now;
    const PayloadKind kind = kindOf(encoding_, packet->payload);
    if (kind.parameterSet) {
        sets_.learn(packet->payload);
        hasSets_ = true;
        setsTime_ = packet->timestamp;
    }
    const bool begins = kind.keyPicture && (!hasKeyTime_ || keyTime_ != packet->timestamp);
    if (waiting_ && !begins) {
        lastSequence_ = static_cast<std::uint16_t>(packet->sequence + sequenceShift_);
        lastTime_ = packet->timestamp + timeShift_;
        return;
    }
    waiting_ = false;
    if (kind.picture && (pictures_ == 0 || pictureTime_ != packet->timestamp)) {
        ++pictures_;
        pictureTime_ = packet->timestamp;
    }
    if (begins)
        countKeyPicture(*packet);
    const bool complete = kind.parameterSet || (hasSets_ && setsTime_ == packet->timestamp);
    const bool added = begins && !complete && !sets_.all().empty();
    if (added)
        addMissingSets(*packet);
    pass(std::string(bytes), *packet, (begins && !added) || !knowsKeyPictures(encoding_));
}

void VideoRelay::countKeyPicture(const RtpPacket& packet) {
    if (hasKeyTime_)
        keyInterval_ = std::int64_t{packet.timestamp - keyTime_} * secondUs / form_.clockRate;
    ++keyPictures_;
    hasKeyTime_ = true;
    keyTime_ = packet.timestamp;
}

// Each in a packet of its own: every depayloader takes that, whatever the packetization mode.
void VideoRelay::addMissingSets(const RtpPacket& packet) {
    bool start = true;
    for (const std::string& set : sets_.all()) {
        const RtpPacket extra{.marker = false,
                              .payloadType = form_.payloadType,
                              .sequence = packet.sequence,
                              .timestamp = packet.timestamp,
                              .source = packet.source,
                              .payload = set};
        pass(makeRtp(extra), extra, std::exchange(start, false));
        ++sequenceShift_;
    }
}

void VideoRelay::pass(std::string bytes, const RtpPacket& packet, bool start) {
    lastSequence_ = static_cast<std::uint16_t>(packet.sequence + sequenceShift_);
    lastTime_ = packet.timestamp + timeShift_;
    stampRtp(bytes, lastSequence_, lastTime_, source_);
    const auto shared = std::make_shared<const std::string>(std::move(bytes));
    kept_.add(shared, start && knowsKeyPictures(encoding_));
    take_(shared, start);
}

} // namespace gateway
