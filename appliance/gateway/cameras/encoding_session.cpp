#include "appliance/gateway/cameras/encoding_session.h"

#include "appliance/gateway/cameras/playable.h"

#include <utility>

namespace gateway {
namespace {

// Cameras send a key picture every few seconds, and only with one can decoding begin.
constexpr std::chrono::milliseconds firstPicture(15'000);

} // namespace

EncodingSession::EncodingSession(EventLoop& loop, const Make& make, SessionEvents events)
    : loop_(loop), events_(std::move(events)),
      camera_(make({.opened = [this](const StreamInfo& info) { onOpened(info); },
                    .packet = [this](Track track, std::string_view packet) { onPacket(track, packet); },
                    .picture = events_.picture,
                    .pause = events_.pause,
                    .ended = [this](const Failure& failure) { end(failure); }})) {}

EncodingSession::~EncodingSession() {
    loop_.cancel(timer_);
}

void EncodingSession::onOpened(const StreamInfo& info) {
    info_ = info;
    if (!info.video || isPlayableVideo(info.video->encodingName)) {
        opened_ = true;
        return events_.opened(info);
    }
    encoder_ = std::make_unique<InputProcess>(
        loop_, InputProcess::Events{.described = [this](const StreamInfo& encoded) { onEncoded(encoded); },
                                    .packet =
                                        [this](Track track, std::string_view packet) {
                                            if (!ended_)
                                                events_.packet(track, packet);
                                        },
                                    .pause =
                                        [this] {
                                            if (opened_ && !ended_)
                                                events_.pause();
                                        },
                                    .ended = [this](const Failure& failure) { end(failure); }});
    const Failure failure = encoder_->start({.kind = input::Kind::packets,
                                             .place = {},
                                             .password = {},
                                             .codec = info.video->encodingName,
                                             .clockRate = info.video->clockRate});
    const Failure late{Fault::noPackets,
                       "no picture of its " + info.video->encodingName + " could be decoded"};
    timer_ = loop_.after(failure.none() ? firstPicture : std::chrono::milliseconds(0),
                         [this, reason = failure.none() ? late : failure] { end(reason); });
}

void EncodingSession::onEncoded(StreamInfo info) {
    if (ended_)
        return;
    loop_.cancel(timer_);
    info.sound = info_.sound;
    info.transport = info_.transport;
    opened_ = true;
    events_.opened(info);
}

void EncodingSession::onPacket(Track track, std::string_view packet) {
    if (ended_)
        return;
    if (encoder_ != nullptr && track == Track::video)
        return encoder_->give(packet);
    if (opened_)
        events_.packet(track, packet);
}

void EncodingSession::end(const Failure& failure) {
    if (std::exchange(ended_, true))
        return;
    loop_.cancel(timer_);
    events_.ended(failure);
}

} // namespace gateway
