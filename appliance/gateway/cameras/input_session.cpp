#include "appliance/gateway/cameras/input_session.h"

#include <libcommon/clock.h>

#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds lookTime(250);
// A file is looked through, and a camera in this machine may take some seconds to start.
constexpr std::chrono::milliseconds startTime(8000);

input::Kind kindOf(Scheme scheme) {
    return scheme == Scheme::file     ? input::Kind::file
           : scheme == Scheme::device ? input::Kind::device
                                      : input::Kind::srt;
}

} // namespace

InputSession::InputSession(EventLoop& loop, CameraUrl url, SessionTimes times, SessionEvents events)
    : loop_(loop), url_(std::move(url)), times_(times), events_(std::move(events)),
      process_(loop, {.described = [this](const StreamInfo& info) { onDescribed(info); },
                      .packet = [this](Track track, std::string_view packet) { onPacket(track, packet); },
                      .pause = [this] { events_.pause(); },
                      .ended = [this](const Failure& failure) { end(failure); }}) {}

InputSession::~InputSession() {
    loop_.cancel(silenceTimer_);
}

input::Request InputSession::request() const {
    return {.kind = kindOf(url_.scheme),
            .place = url_.isAtThisMachine() ? url_.target : url_.text(),
            .password = url_.password,
            .codec = {}};
}

void InputSession::open() {
    started_ = gettimeusec();
    if (const Failure failure = process_.start(request()); !failure.none()) {
        silenceTimer_ = loop_.after(std::chrono::milliseconds(0), [this, failure] { end(failure); });
        return;
    }
    watchSilence();
}

void InputSession::onDescribed(StreamInfo info) {
    if (ended_)
        return;
    info.transport = url_.isAtThisMachine() ? "" : "SRT";
    lastPacket_ = gettimeusec();
    events_.opened(info);
}

void InputSession::onPacket(Track track, std::string_view packet) {
    if (ended_)
        return;
    lastPacket_ = gettimeusec();
    events_.packet(track, packet);
}

void InputSession::watchSilence() {
    silenceTimer_ = loop_.after(lookTime, [this] {
        if (const Failure failure = silence(gettimeusec()); !failure.none())
            return end(failure);
        watchSilence();
    });
}

Failure InputSession::silence(std::int64_t now) const {
    if (lastPacket_ != 0 && now - lastPacket_ > times_.silence.count() * 1000)
        return {Fault::silence, url_.place() + " has stopped sending"};
    if (lastPacket_ == 0 && now - started_ > std::chrono::microseconds(startTime).count())
        return {Fault::noAnswer, url_.isAtThisMachine() ? "no pictures come from " + url_.place()
                                                        : url_.place() + " does not answer"};
    return {};
}

void InputSession::end(const Failure& failure) {
    if (std::exchange(ended_, true))
        return;
    loop_.cancel(silenceTimer_);
    events_.ended(failure);
}

} // namespace gateway
