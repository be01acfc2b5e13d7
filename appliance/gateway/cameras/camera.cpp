#include "appliance/gateway/cameras/camera.h"

#include "appliance/gateway/loop/back_off.h"
#include "appliance/streams/jpeg_check.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <random>
#include <utility>

namespace gateway {
namespace {

// A player's detection and its start are two connections, and a sequence comes back soon.
constexpr std::chrono::seconds linger(15);
// How long players wait for a camera that has gone away, as one does that restarts. Attempts are made 1 and 3 s after.
constexpr std::int64_t stayUs = 5'000'000;
constexpr std::size_t keptBytes = 16 * 1024 * 1024;

std::uint32_t randomNumber() {
    return std::random_device{}();
}

Delivery firstDelivery(Transport transport) {
    if (transport == Transport::tcp)
        return Delivery::tcp;
    return transport == Transport::multicast ? Delivery::multicast : Delivery::udp;
}

streams::VideoForm formOf(const TrackInfo& track, std::size_t kept) {
    return {track.encodingName, track.payloadType, track.clockRate, track.fmtp, kept};
}

// Whether a camera that restarts can fail like this.
bool mayPass(Fault fault) {
    switch (fault) {
    case Fault::noRoute:
    case Fault::refused:
    case Fault::noConnection:
    case Fault::noAnswer:
    case Fault::noPackets:
    case Fault::silence:
    case Fault::ended:
        return true;
    default: // the camera is there, and says no
        return false;
    }
}

} // namespace

bool CameraSettings::sameCamera(const CameraSettings& other) const {
    const bool sameSub =
        sub.has_value() == other.sub.has_value() && (!sub || sub->text() == other.sub->text());
    return number == other.number && mistake == other.mistake && url.text() == other.url.text() && sameSub &&
           url.user == other.url.user && url.password == other.url.password && transport == other.transport;
}

Camera::Camera(EventLoop& loop, Transfers& transfers, CameraSettings settings, SessionTimes times,
               std::function<void(const Camera&)> changed)
    : loop_(loop), transfers_(transfers), settings_(std::move(settings)), times_(times),
      changed_(std::move(changed)), delivery_(firstDelivery(settings_.transport)) {
    if (!settings_.mistake.empty())
        failure_ = {Fault::badUrl, settings_.mistake};
}

Camera::~Camera() {
    end();
}

void Camera::end() {
    if (std::exchange(over_, true))
        return;
    loop_.cancel(againTimer_);
    loop_.cancel(lingerTimer_);
    closeSession();
    failure_ = {Fault::ended, "the camera was removed from the configuration"};
    answerAll(failure_);
    endViewers(failure_);
}

CameraReport Camera::report() const {
    CameraReport report{
        .failure = failure_, .open = open_, .info = info_, .bytes = bytes_, .pictures = pictures_};
    if (video_ != nullptr) {
        report.pictures = video_->pictures();
        report.keyInterval = video_->keyInterval();
        report.size = video_->size();
    } else if (picture_ != nullptr) {
        if (const auto size = streams::wholeJpeg(*picture_))
            report.size = streams::PictureSize{size->width, size->height};
    }
    report.viewers = viewers_.size();
    return report;
}

// ---- Who wants the stream.

void Camera::ask(Answer answer) {
    if (!settings_.mistake.empty() || over_)
        return answer(info_, failure_);
    loop_.cancel(lingerTimer_);
    lingerTimer_ = loop_.after(linger, [this] {
        lingerTimer_ = 0;
        stopWhenUnwanted();
    });
    if (open_)
        return answer(info_, {});
    if (againTimer_ != 0)
        return answer(info_, failure_);
    answers_.push_back(std::move(answer));
    if (session_ == nullptr)
        open();
}

Camera::ViewerId Camera::join(Viewer viewer) {
    if (!open_)
        return 0;
    const ViewerId id = nextViewer_++;
    const auto shared = std::make_shared<Viewer>(std::move(viewer));
    if (video_ != nullptr) {
        bool start = true;
        for (const streams::Packet& packet : video_->kept().packets())
            shared->packet(Track::video, packet, std::exchange(start, false));
    } else if (picture_ != nullptr) {
        shared->picture(picture_);
    }
    viewers_[id] = shared;
    shared->flush();
    return id;
}

void Camera::leave(ViewerId viewer) {
    if (viewers_.erase(viewer) == 0 || !viewers_.empty())
        return;
    loop_.cancel(lingerTimer_);
    lingerTimer_ = loop_.after(linger, [this] {
        lingerTimer_ = 0;
        stopWhenUnwanted();
    });
}

void Camera::stopWhenUnwanted() {
    if (isWanted())
        return;
    loop_.cancel(againTimer_);
    failures_ = 0;
    closeSession();
    changed_(*this);
}

void Camera::answerAll(const Failure& failure) {
    for (const Answer& answer : std::exchange(answers_, {}))
        answer(info_, failure);
}

void Camera::endViewers(const Failure& failure) {
    for (const auto& [id, viewer] : std::exchange(viewers_, {}))
        viewer->ended(failure);
}

// ---- The session.

void Camera::open() {
    const SessionEvents events{
        .opened = [this](const StreamInfo& info) { onOpened(info); },
        .packet = [this](Track track, std::string_view packet) { onPacket(track, packet); },
        .picture = [this](std::string_view jpeg) { onPicture(jpeg); },
        .pause = [this] { onPause(); },
        .ended = [this](const Failure& failure) { onEnded(failure); }};
    session_ = makeSession(loop_, transfers_, settings_.played(), delivery_, times_, events);
    session_->open();
}

// The session may be in the middle of a call.
void Camera::closeSession() {
    open_ = false;
    picture_ = nullptr;
    if (const std::shared_ptr<CameraSession> session = std::move(session_))
        loop_.later([session] {});
}

void Camera::onOpened(const StreamInfo& info) {
    const bool same = info.video == info_.video && info.sound == info_.sound;
    if (!same)
        endViewers({Fault::ended, settings_.played().place() + " sends another stream than before"});
    info_ = info;
    makeRelays(info);
    open_ = true;
    failure_ = {};
    logmsg(6, "Camera %d \"%s\" plays%s", settings_.number, settings_.name.c_str(), info.way().c_str());
    changed_(*this);
    answerAll({});
}

// The relays of an unchanged stream go on, so that players stay through a break.
void Camera::makeRelays(const StreamInfo& info) {
    const std::int64_t now = gettimeusec();
    if (!info.video) {
        video_ = nullptr;
    } else if (video_ != nullptr && !viewers_.empty()) {
        video_->beginSession(now);
    } else {
        video_ = std::make_unique<streams::VideoRelay>(
            formOf(*info.video, keptBytes), randomNumber(),
            [this](const streams::Packet& packet, bool start) { pass(Track::video, packet, start); });
    }
    if (!info.sound) {
        sound_ = nullptr;
    } else if (sound_ != nullptr && !viewers_.empty()) {
        sound_->beginSession(now);
    } else {
        sound_ = std::make_unique<streams::VideoRelay>(
            formOf(*info.sound, 0), randomNumber(),
            [this](const streams::Packet& packet, bool start) { pass(Track::sound, packet, start); });
    }
}

void Camera::onPacket(Track track, std::string_view packet) {
    failures_ = 0;
    bytes_ += packet.size();
    const std::unique_ptr<streams::VideoRelay>& relay = track == Track::video ? video_ : sound_;
    if (relay != nullptr)
        relay->add(packet, gettimeusec());
}

// A viewer may leave in its call, when its connection turns out to be broken.
template<typename Call>
void Camera::eachViewer(Call call) {
    for (auto next = viewers_.begin(); next != viewers_.end();) {
        const std::shared_ptr<Viewer> viewer = (next++)->second;
        call(*viewer);
    }
}

void Camera::pass(Track track, const streams::Packet& packet, bool start) {
    eachViewer([&](const Viewer& viewer) { viewer.packet(track, packet, start); });
}

void Camera::onPicture(std::string_view jpeg) {
    failures_ = 0;
    bytes_ += jpeg.size();
    ++pictures_;
    picture_ = std::make_shared<const std::string>(jpeg);
    eachViewer([this](const Viewer& viewer) { viewer.picture(picture_); });
}

void Camera::onPause() {
    eachViewer([](const Viewer& viewer) { viewer.flush(); });
}

// The delivery to try next when the present one does not work, in this order: UDP, TCP, multicast, UDP.
std::optional<Delivery> Camera::otherDelivery(const Failure& failure) const {
    const bool refused = !open_ && failure.fault == Fault::otherStatus;
    const bool notOffered = failure.fault == Fault::noTransport;
    switch (delivery_) {
    case Delivery::udp: // nothing came, or the camera does not offer it
        if (refused || notOffered || failure.fault == Fault::noPackets)
            return Delivery::tcp;
        break;
    case Delivery::tcp:
        if (notOffered)
            return Delivery::multicast;
        break;
    case Delivery::multicast:
        return Delivery::udp;
    }
    return std::nullopt;
}

// True when the stream is to be asked for in another way at once.
bool Camera::fallsBack(const Failure& failure) {
    if (!settings_.played().isRtsp() || settings_.transport != Transport::automatic)
        return false;
    const auto other = otherDelivery(failure);
    if (!other)
        return false;
    delivery_ = *other;
    if (*other == Delivery::udp)
        return false; // all have been tried; the next attempt begins anew
    logmsg(6, "Camera %d \"%s\": %s; trying %s", settings_.number, settings_.name.c_str(),
           failure.text.c_str(), *other == Delivery::tcp ? "TCP" : "multicast");
    return true;
}

void Camera::onEnded(const Failure& failure) {
    const bool wasOpen = open_;
    if (wasOpen)
        brokenAt_ = gettimeusec();
    if (fallsBack(failure)) {
        closeSession();
        return open();
    }
    closeSession();
    ++failures_;
    if (failure.fault != failure_.fault || failure.text != failure_.text)
        logmsg(4, "Camera %d \"%s\": %s", settings_.number, settings_.name.c_str(), failure.text.c_str());
    failure_ = failure;
    if (!wasOpen) {
        answerAll(failure);
        if (!mayPass(failure.fault) || gettimeusec() - brokenAt_ > stayUs)
            endViewers(failure);
    }
    changed_(*this);
    if (isWanted())
        tryAgain();
}

void Camera::tryAgain() {
    loop_.cancel(againTimer_);
    againTimer_ = loop_.after(pauseAfter(failures_), [this] {
        againTimer_ = 0;
        if (isWanted())
            open();
    });
}

} // namespace gateway
