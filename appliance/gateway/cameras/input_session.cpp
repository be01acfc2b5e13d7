#include "appliance/gateway/cameras/input_session.h"

#include "appliance/input/protocol/web_source.h"
#include "appliance/streams/byte_stream.h"

#include <libcommon/clock.h>

#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds lookTime(250);
// A file is looked through, and a camera in this machine may take some seconds to start.
constexpr std::chrono::milliseconds startTime(8000);
// camera-input itself says after nine seconds what a web server lacks.
constexpr std::chrono::milliseconds webStartTime(11000);

input::Kind kindOf(Scheme scheme) {
    switch (scheme) {
    case Scheme::file:
        return input::Kind::file;
    case Scheme::device:
        return input::Kind::device;
    case Scheme::http:
    case Scheme::https:
        return input::Kind::web;
    case Scheme::srt:
    case Scheme::rtsp:
    case Scheme::rtsps:
        break;
    }
    return input::Kind::srt;
}

// For people.
std::string transportOf(const CameraUrl& url, input::WebForm form) {
    if (url.isAtThisMachine())
        return "";
    if (!url.isHttp())
        return "SRT";
    return form == input::WebForm::session ? "UDP" : "HTTP";
}

} // namespace

InputSession::InputSession(EventLoop& loop, CameraUrl url, input::WebForm form, SessionTimes times,
                           SessionEvents events)
    : loop_(loop), url_(std::move(url)), form_(form), times_(times), events_(std::move(events)),
      process_(loop, {.described = [this](const StreamInfo& info) { onDescribed(info); },
                      .packet = [this](Track track, std::string_view packet) { onPacket(track, packet); },
                      .pause = [this] { events_.pause(); },
                      .ended = [this](const Failure& failure) { end(failure); }}) {}

InputSession::~InputSession() {
    loop_.cancel(silenceTimer_);
}

input::Request InputSession::request() const {
    const streams::TlsChecks tls = url_.usesTls() ? streams::tlsChecks() : streams::TlsChecks{};
    return {.kind = kindOf(url_.scheme),
            .place = url_.isAtThisMachine() ? url_.target : url_.text(),
            .password = url_.password,
            .codec = {},
            .user = url_.user,
            .verified = tls.verified,
            .authorities = tls.authorities,
            .form = form_};
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
    info.transport = transportOf(url_, form_);
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

std::chrono::milliseconds InputSession::longestStart() const {
    return url_.isHttp() ? webStartTime : startTime;
}

Failure InputSession::silence(std::int64_t now) const {
    if (lastPacket_ != 0 && now - lastPacket_ > times_.silence.count() * 1000)
        return {Fault::silence, url_.place() + " has stopped sending"};
    if (lastPacket_ == 0 && now - started_ > std::chrono::microseconds(longestStart()).count())
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
