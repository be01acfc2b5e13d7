#include "appliance/streams/rtp/video_relay.h"

#include <utility>

namespace streams {
namespace {

// Between the sessions of a camera, so that a player's depayloader sees a loss and waits for a whole picture.
constexpr std::uint16_t sessionGap = 100;
constexpr std::int64_t secondUs = 1'000'000;

// Without a start for this long, a picture that refers to no other one is enough, and then any picture.
constexpr std::int64_t intraAfterUs = 3 * secondUs;
constexpr std::int64_t anyAfterUs = 5 * secondUs;
constexpr std::size_t mostPrefix = 32; // packets

// An H.264 recovery point at which the picture is shown at once: the decoder would wait for one forever.
constexpr std::string_view recoveryPoint("\x06\x06\x01\x84\x80", 5);

} // namespace

VideoRelay::VideoRelay(VideoForm form, std::uint32_t source, Take take)
    : form_(std::move(form)), encoding_(encodingOf(form_.encodingName)), source_(source),
      take_(std::move(take)), kept_(form_.keptBytes), sets_(encoding_, form_.fmtp),
      waiting_(knowsKeyPictures(encoding_)) {
    size_ = sizeInFormat(encoding_, form_.fmtp);
    for (const std::string& set : sets_.all()) {
        if (const auto size = sizeOfSet(encoding_, set))
            size_ = size;
    }
}

void VideoRelay::beginSession(std::int64_t /*now*/) {
    known_ = false;
    waiting_ = knowsKeyPictures(encoding_);
    hasKeyTime_ = false;
    dropPrefix();
    kept_.clear();
}

// The first packet of a session, or of another sender in it, goes on where the one before ended.
void VideoRelay::followSender(const RtpPacket& packet, std::int64_t now) {
    if (known_ && packet.source == sender_)
        return;
    known_ = true;
    sender_ = packet.source;
    hasKeyTime_ = false;
    demand_ = Demand::keyOrRecovery;
    startAt_ = now;
    dropPrefix();
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
    learn(*packet, kind);
    if (!prefix_.empty() && (prefixTime_ != packet->timestamp || prefix_.size() >= mostPrefix))
        passPrefix(false); // it belonged to no picture
    if (kind.prefix)
        return holdPrefix(bytes, *packet, kind);
    const bool start = isStart(*packet, kind, now);
    if (waiting_ && !start)
        return skip(*packet);
    waiting_ = false;
    passPicture(bytes, *packet, kind, start);
}

// In H.264 and H.265 the size is in parameter sets, in all others in key pictures.
void VideoRelay::learn(const RtpPacket& packet, const PayloadKind& kind) {
    if (kind.parameterSet)
        sets_.learn(packet.payload);
    const bool inSets = encoding_ == Encoding::h264 || encoding_ == Encoding::h265;
    const bool tells = inSets ? kind.parameterSet : kind.whole;
    if (const auto size = tells ? sizeInPayload(encoding_, packet.payload) : std::nullopt)
        size_ = size;
}

// ---- What comes before a picture.

void VideoRelay::holdPrefix(std::string_view bytes, const RtpPacket& packet, const PayloadKind& kind) {
    prefix_.emplace_back(bytes);
    prefixTime_ = packet.timestamp;
    prefixHasSets_ = prefixHasSets_ || kind.parameterSet;
    prefixRecovers_ = prefixRecovers_ || kind.recoveryPoint;
}

void VideoRelay::dropPrefix() {
    prefix_.clear();
    prefixHasSets_ = prefixRecovers_ = false;
}

void VideoRelay::passPrefix(bool start) {
    const std::vector<std::string> prefix = std::exchange(prefix_, {});
    dropPrefix();
    for (const std::string& bytes : prefix) {
        const auto packet = readRtp(bytes);
        if (waiting_)
            skip(*packet);
        else
            pass(bytes, *packet, std::exchange(start, false));
    }
}

// ---- Pictures.

// Whether a player can begin with the picture that begins in this packet.
bool VideoRelay::isStart(const RtpPacket& packet, const PayloadKind& kind, std::int64_t now) {
    const bool known = hasKeyTime_ && keyTime_ == packet.timestamp; // more of the same picture
    if (known || !kind.picture || !knowsKeyPictures(encoding_))
        return false;
    // Some cameras repeat their sets before every picture: they make a start of a picture without references only.
    const bool setsAndIntra = prefixHasSets_ && (kind.intra || encoding_ == Encoding::h265);
    if (kind.whole || prefixRecovers_ || setsAndIntra) {
        demand_ = Demand::keyOrRecovery;
        startAt_ = now;
        return true;
    }
    // A player that joins now can't be helped: it would wait for a start that may never come.
    const bool helpless = waiting_ || kept_.packets().empty();
    if (helpless && now - startAt_ > anyAfterUs)
        demand_ = Demand::any;
    else if (helpless && now - startAt_ > intraAfterUs && demand_ == Demand::keyOrRecovery)
        demand_ = Demand::intra;
    const bool first = pictures_ == 0 || pictureTime_ != packet.timestamp;
    return (demand_ == Demand::intra && kind.intra) || (demand_ == Demand::any && first);
}

void VideoRelay::passPicture(std::string_view bytes, const RtpPacket& packet, const PayloadKind& kind,
                             bool start) {
    if (kind.picture)
        countPicture(packet, start);
    const bool lacksSets = start && !prefixHasSets_ && !kind.parameterSet;
    bool marked = start || !knowsKeyPictures(encoding_);
    if (lacksSets) {
        for (const std::string& set : sets_.all())
            addBefore(packet, set, std::exchange(marked, false));
    }
    const bool hasPrefix = !prefix_.empty();
    passPrefix(marked);
    marked = marked && !hasPrefix;
    if (start && demand_ == Demand::any && encoding_ == Encoding::h264)
        addBefore(packet, recoveryPoint, std::exchange(marked, false));
    pass(std::string(bytes), packet, marked);
}

void VideoRelay::countPicture(const RtpPacket& packet, bool start) {
    if (pictures_ == 0 || pictureTime_ != packet.timestamp) {
        ++pictures_;
        pictureTime_ = packet.timestamp;
    }
    if (!start)
        return;
    const std::uint32_t passed = hasKeyTime_ ? packet.timestamp - keyTime_ : 0;
    keyInterval_ = demand_ == Demand::any ? 0
                   : hasKeyTime_          ? std::int64_t{passed} * secondUs / form_.clockRate
                                          : keyInterval_;
    ++keyPictures_;
    hasKeyTime_ = true;
    keyTime_ = packet.timestamp;
}

// A packet of our own before one of the camera.
void VideoRelay::addBefore(const RtpPacket& packet, std::string_view payload, bool start) {
    const RtpPacket extra{.marker = false,
                          .payloadType = form_.payloadType,
                          .sequence = packet.sequence,
                          .timestamp = packet.timestamp,
                          .source = packet.source,
                          .payload = payload};
    pass(makeRtp(extra), extra, start);
    ++sequenceShift_;
}

// A packet that no player gets.
void VideoRelay::skip(const RtpPacket& packet) {
    lastSequence_ = static_cast<std::uint16_t>(packet.sequence + sequenceShift_);
    lastTime_ = packet.timestamp + timeShift_;
}

void VideoRelay::pass(std::string bytes, const RtpPacket& packet, bool start) {
    skip(packet);
    stampRtp(bytes, lastSequence_, lastTime_, source_);
    const auto shared = std::make_shared<const std::string>(std::move(bytes));
    kept_.add(shared, start && knowsKeyPictures(encoding_));
    take_(shared, start);
}

} // namespace streams
