#include "appliance/gateway/cameras/rtsp_session.h"

#include "appliance/gateway/cameras/playable.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <algorithm>
#include <random>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds reportTime(5000);
constexpr std::chrono::milliseconds lookTime(250);                    // for silence, and for gaps over UDP
constexpr const char* transportNames[] = {"UDP", "TCP", "multicast"}; // of the values of Delivery

} // namespace

RtspSession::RtspSession(EventLoop& loop, Transfers& transfers, CameraUrl url, Delivery delivery,
                         SessionTimes times, SessionEvents events)
    : loop_(loop), url_(std::move(url)), delivery_(delivery), times_(times), events_(std::move(events)),
      dialogue_(
          loop, transfers, url_, times_,
          {.connected = [this] { dialogue_.request("DESCRIBE", url_.text(), "Accept: application/sdp\r\n"); },
           .answered = [this](const streams::RtspMessage& message) { answered(message); },
           .packet = [this](int channel, std::string_view packet) { onChannel(channel, packet); },
           .pause = [this] { events_.pause(); },
           .ended = [this](const Failure& failure) { end(failure); }}),
      reporter_(std::random_device{}()) {}

RtspSession::~RtspSession() {
    tearDown();
    for (EventLoop::Timer* timer : {&silenceTimer_, &keepAliveTimer_, &reportTimer_})
        loop_.cancel(*timer);
}

void RtspSession::open() {
    dialogue_.open();
}

// ---- From DESCRIBE to PLAY.

std::string RtspSession::sessionLine() const {
    return session_.empty() ? "" : "Session: " + session_ + "\r\n";
}

void RtspSession::answered(const streams::RtspMessage& message) {
    if (step_ == Step::playing || step_ == Step::ended)
        return; // answers to keep-alives only keep alive
    if (message.status == 200)
        return accepted(message);
    // A stream without its sound is better than none.
    if (step_ == Step::settingUp && settingUp_ == 1)
        return play();
    end(refusalOf(message.status, url_.place(), !url_.user.empty(), " " + dialogue_.method()));
}

void RtspSession::accepted(const streams::RtspMessage& message) {
    switch (step_) {
    case Step::describing:
        return described(message);
    case Step::settingUp:
        return hasSetUp(message);
    case Step::starting:
        return hasStarted();
    case Step::playing:
    case Step::ended:
        return;
    }
}

void RtspSession::described(const streams::RtspMessage& message) {
    std::string base = message.header("Content-Base");
    if (base.find("://") == std::string::npos)
        base = url_.text();
    std::string reason;
    std::string refused; // the encoding of a video stream that can't be shown
    const auto read = [&](bool (*isUsable)(const std::string&)) {
        const auto isUsableVideo = [&](const std::string& name) {
            if (!isUsable(name))
                refused = name;
            return isUsable(name);
        };
        return streams::readDescription(message.body, base, isUsableVideo, isPlayableSound, reason);
    };
    auto description = read(isPlayableVideo);
    if (!description && !refused.empty())
        description = read(isEncodableVideo);
    if (!description && !refused.empty())
        return end({Fault::unsupported, "codec " + libcommon::printable(refused) + " can't be shown"});
    if (!description)
        return end({Fault::notUnderstood, "the stream of " + url_.place() + " can't be used: " + reason});
    control_ = description->control;
    addReception(Track::video, *description->video);
    if (description->sound)
        addReception(Track::sound, *description->sound);
    setUp(0);
}

void RtspSession::addReception(Track track, const streams::DescribedStream& stream) {
    receptions_.push_back(std::make_unique<Reception>(
        loop_, dialogue_, stream, static_cast<int>(receptions_.size()),
        ReceptionEvents{.packet = [this, track](std::string_view packet) { onPacket(track, packet); },
                        .goodbye = [this] { onGoodbye(); },
                        .pause = [this] { events_.pause(); }}));
}

void RtspSession::setUp(std::size_t number) {
    step_ = Step::settingUp;
    settingUp_ = number;
    const std::string transport = receptions_[number]->offer(delivery_);
    if (transport.empty())
        return end({Fault::noPackets, "there are no free UDP ports to receive on"});
    dialogue_.request("SETUP", receptions_[number]->described().control,
                      "Transport: " + transport + "\r\n" + sessionLine());
}

void RtspSession::hasSetUp(const streams::RtspMessage& message) {
    const std::string session = message.header("Session");
    session_ = session.substr(0, session.find_first_of("; \t"));
    if (const int timeout = streams::numberAt(streams::parameterIn(session, "timeout")); timeout > 0)
        sessionTimeout_ = timeout;
    if (!receptions_[settingUp_]->accept(message.header("Transport")) && settingUp_ == 0)
        return end({Fault::noPackets, url_.place() + " offers no multicast group that can be received"});
    if (settingUp_ + 1 < receptions_.size())
        return setUp(settingUp_ + 1);
    play();
}

void RtspSession::play() {
    step_ = Step::starting;
    dialogue_.request("PLAY", control_, sessionLine() + "Range: npt=0.000-\r\n");
}

void RtspSession::hasStarted() {
    step_ = Step::playing;
    started_ = gettimeusec();
    events_.opened(info());
    if (step_ == Step::ended)
        return;
    watchSilence();
    keepAlive();
    sendReports();
}

StreamInfo RtspSession::info() const {
    StreamInfo info;
    info.video = trackOf(receptions_[0]->described());
    if (receptions_.size() > 1 && receptions_[1]->ready())
        info.sound = trackOf(receptions_[1]->described());
    info.transport = transportNames[static_cast<std::size_t>(receptions_[0]->delivery())];
    return info;
}

// ---- Packets.

void RtspSession::onChannel(int channel, std::string_view packet) {
    std::ranges::any_of(receptions_, [&](const std::unique_ptr<Reception>& reception) {
        return reception->takeChannel(channel, packet);
    });
}

void RtspSession::onPacket(Track track, std::string_view packet) {
    // Packets may come before the answer to PLAY.
    if (step_ != Step::playing && step_ != Step::starting)
        return;
    lastPacket_ = gettimeusec();
    if (step_ == Step::playing)
        events_.packet(track, packet);
}

void RtspSession::onGoodbye() {
    if (step_ == Step::playing)
        end({Fault::ended, url_.place() + " ended the stream"});
}

// ---- While it plays.

bool RtspSession::overUdp() const {
    return delivery_ != Delivery::tcp;
}

void RtspSession::watchSilence() {
    silenceTimer_ = loop_.after(lookTime, [this] {
        const std::int64_t now = gettimeusec();
        for (const auto& reception : receptions_)
            reception->look(now);
        if (const Failure failure = silence(now); !failure.none())
            return end(failure);
        watchSilence();
    });
}

Failure RtspSession::silence(std::int64_t now) const {
    if (lastPacket_ != 0 && now - lastPacket_ > times_.silence.count() * 1000)
        return {Fault::silence, url_.place() + " has stopped sending"};
    const auto first = overUdp() ? times_.firstDatagram : times_.firstPacket;
    if (lastPacket_ == 0 && now - started_ > first.count() * 1000)
        return {Fault::noPackets, url_.place() + " accepts the session and sends nothing" +
                                      (overUdp() ? " over " + info().transport : "")};
    return {};
}

// Most servers keep a session alive while requests arrive, the others while reports arrive.
void RtspSession::keepAlive() {
    keepAliveTimer_ = loop_.after(std::chrono::milliseconds(500 * sessionTimeout_), [this] {
        constexpr bool patient = true;
        dialogue_.request("GET_PARAMETER", control_, sessionLine(), patient);
        if (step_ != Step::ended)
            keepAlive();
    });
}

void RtspSession::sendReports() {
    for (const auto& reception : receptions_)
        reception->sendReport(reporter_);
    if (step_ != Step::ended)
        reportTimer_ = loop_.after(reportTime, [this] { sendReports(); });
}

void RtspSession::tearDown() {
    if (!session_.empty() && dialogue_.isOpen())
        dialogue_.sayGoodbye("TEARDOWN", control_, sessionLine());
}

void RtspSession::end(const Failure& failure) {
    if (step_ == Step::ended)
        return;
    tearDown();
    step_ = Step::ended;
    dialogue_.close();
    for (EventLoop::Timer* timer : {&silenceTimer_, &keepAliveTimer_, &reportTimer_})
        loop_.cancel(*timer);
    events_.ended(failure);
}

} // namespace gateway
