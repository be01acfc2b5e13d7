#include "appliance/gateway/cameras/rtsp_session.h"

#include "appliance/gateway/rtp/rtp_packet.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <netinet/in.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr int mostAttempts = 3;
constexpr std::chrono::milliseconds reportTime(5000);
constexpr std::chrono::milliseconds lookTime(250); // for silence, and for gaps over UDP
constexpr int goodbyeType = 203;                   // RTCP BYE

// What the players can decode.
constexpr std::array videos{"H264", "H265", "MP4V-ES", "MPV", "MP2T", "JPEG"};
constexpr std::array sounds{"PCMU", "PCMA", "MPA", "MPEG4-GENERIC", "MP4A-LATM", "G726-32"};

template<std::size_t Size>
bool isIn(const std::array<const char*, Size>& names, const std::string& name) {
    return std::ranges::any_of(names, [&](const char* one) { return name == one; });
}

std::uint32_t randomNumber() {
    return std::random_device{}();
}

TrackInfo trackOf(const streams::DescribedStream& stream) {
    TrackInfo info{stream.encodingName, stream.payloadType, 90000, stream.rtpmap, stream.fmtp};
    const std::size_t rate = stream.caps.find("clock-rate=");
    if (rate != std::string::npos) {
        const std::size_t digits = stream.caps.find_first_of("0123456789", rate);
        info.clockRate = std::max(1, streams::numberAt(std::string_view(stream.caps).substr(digits)));
    }
    return info;
}

std::vector<std::string> challengesOf(const streams::RtspMessage& message) {
    std::vector<std::string> challenges;
    const auto [first, last] = message.headers.equal_range("WWW-Authenticate");
    for (auto one = first; one != last; ++one)
        challenges.push_back(one->second);
    return challenges;
}

void append(std::string& to, std::uint32_t word) {
    for (const int shift : {24, 16, 8, 0})
        to += static_cast<char>(word >> shift & 255);
}

} // namespace

RtspSession::RtspSession(EventLoop& loop, Transfers& transfers, CameraUrl url, bool overUdp,
                         SessionTimes times, SessionEvents events)
    : loop_(loop), url_(std::move(url)), overUdp_(overUdp), times_(times), events_(std::move(events)),
      connection_(loop, transfers, url_,
                  {.connected = [this] { request("DESCRIBE", url_.text(), "Accept: application/sdp\r\n"); },
                   .received =
                       [this](std::string_view bytes) {
                           if (!reader_.feed(bytes.data(), bytes.size()))
                               end({Fault::notUnderstood, url_.place() + " does not speak RTSP"});
                       },
                   .pause = [this] { events_.pause(); },
                   .ended = [this](const Failure& failure) { end(failure); }}),
      credentials_(url_.user, url_.password),
      reader_({.message = [this](streams::RtspMessage&& message) { onMessage(std::move(message)); },
               .packet = [this](int channel, std::string_view packet) { onChannel(channel, packet); }}),
      reporter_(randomNumber()) {
    receptions_[1].track = Track::sound;
}

RtspSession::~RtspSession() {
    tearDown();
    for (EventLoop::Timer* timer : {&answerTimer_, &silenceTimer_, &keepAliveTimer_, &reportTimer_})
        loop_.cancel(*timer);
    for (const Reception& reception : receptions_) {
        for (const int socket : {reception.sockets.data, reception.sockets.control}) {
            if (socket < 0)
                continue;
            loop_.forget(socket);
            close(socket);
        }
    }
}

void RtspSession::open() {
    connection_.open(times_.connect);
}

// ---- Requests and their answers.

std::string RtspSession::sessionLine() const {
    return session_.empty() ? "" : "Session: " + session_ + "\r\n";
}

void RtspSession::request(const std::string& method, const std::string& url, const std::string& headers) {
    if (step_ == Step::connecting)
        step_ = Step::describing;
    method_ = method;
    target_ = url;
    headers_ = headers;
    attempts_ = 0;
    sendAgain();
}

void RtspSession::sendAgain() {
    ++attempts_;
    const std::string answer = credentials_.answer(method_, target_);
    connection_.send(method_ + " " + target_ + " RTSP/1.0\r\nCSeq: " + std::to_string(++sequence_) +
                     "\r\nUser-Agent: decoder\r\n" +
                     (answer.empty() ? "" : "Authorization: " + answer + "\r\n") + headers_ + "\r\n");
    if (step_ != Step::playing)
        expectAnswer();
}

void RtspSession::expectAnswer() {
    loop_.cancel(answerTimer_);
    answerTimer_ = loop_.after(times_.answer, [this] {
        answerTimer_ = 0;
        end({Fault::noAnswer, url_.place() + " does not answer " + method_});
    });
}

void RtspSession::onMessage(streams::RtspMessage&& message) {
    // Some servers leave the number out. Answers to keep-alives only keep alive.
    const bool expected = message.sequence() == sequence_ || message.sequence() == -1;
    if (message.status == 0 || !expected || step_ == Step::ended)
        return;
    loop_.cancel(answerTimer_);
    if (message.status == 401 && attempts_ < mostAttempts && credentials_.challenge(challengesOf(message)))
        return sendAgain();
    if (step_ == Step::playing)
        return;
    if (message.status == 200)
        return answered(message);
    // A stream without its sound is better than none.
    if (step_ == Step::settingUp && settingUp_ == 1 && receptions_[0].ready)
        return play();
    end(refusal(message));
}

void RtspSession::answered(const streams::RtspMessage& message) {
    switch (step_) {
    case Step::describing:
        return described(message);
    case Step::settingUp:
        return hasSetUp(message);
    case Step::starting:
        return hasStarted();
    case Step::connecting:
    case Step::playing:
    case Step::ended:
        return;
    }
}

Failure RtspSession::refusal(const streams::RtspMessage& message) const {
    return refusalOf(message.status, url_.place(), !url_.user.empty(), " " + method_);
}

void RtspSession::described(const streams::RtspMessage& message) {
    std::string base = message.header("Content-Base");
    if (base.find("://") == std::string::npos)
        base = url_.text();
    std::string reason;
    std::string refused; // the encoding of a video stream that can't be shown
    const auto description = streams::readDescription(
        message.body, base,
        [&](const std::string& name) {
            if (!isIn(videos, name))
                refused = name;
            return isIn(videos, name);
        },
        [](const std::string& name) { return isIn(sounds, name); }, reason);
    if (!description && !refused.empty())
        return end({Fault::unsupported, "codec " + libcommon::printable(refused) + " can't be shown"});
    if (!description)
        return end({Fault::notUnderstood, "the stream of " + url_.place() + " can't be used: " + reason});
    control_ = description->control;
    receptions_[0].described = *description->video;
    tracks_ = 1;
    if (description->sound) {
        receptions_[1].described = *description->sound;
        tracks_ = 2;
    }
    setUp(0);
}

void RtspSession::setUp(std::size_t number) {
    step_ = Step::settingUp;
    settingUp_ = number;
    const std::string transport = transportLine(number);
    if (transport.empty())
        return end({Fault::noPackets, "there are no free UDP ports to receive on"});
    request("SETUP", receptions_[number].described.control, transport + sessionLine());
}

std::string RtspSession::transportLine(std::size_t number) {
    Reception& reception = receptions_[number];
    if (!overUdp_) {
        reception.channel = static_cast<int>(2 * number);
        return "Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(2 * number) + "-" +
               std::to_string(2 * number + 1) + "\r\n";
    }
    reception.sockets = streams::bindPair(0);
    if (reception.sockets.data < 0)
        return "";
    return "Transport: RTP/AVP;unicast;client_port=" + std::to_string(reception.sockets.port) + "-" +
           std::to_string(reception.sockets.port + 1) + "\r\n";
}

void RtspSession::hasSetUp(const streams::RtspMessage& message) {
    Reception& reception = receptions_[settingUp_];
    const std::string session = message.header("Session");
    session_ = session.substr(0, session.find_first_of("; \t"));
    if (const int timeout = streams::numberAt(streams::parameterIn(session, "timeout")); timeout > 0)
        sessionTimeout_ = timeout;
    const std::string transport = message.header("Transport");
    if (overUdp_) {
        reception.reportPort = streams::numberAt(streams::parameterIn(transport, "server_port")) + 1;
        listen(reception);
    } else if (const int channel = streams::numberAt(streams::parameterIn(transport, "interleaved"));
               channel >= 0) {
        reception.channel = channel;
    }
    reception.ready = true;
    if (settingUp_ + 1 < tracks_)
        return setUp(settingUp_ + 1);
    play();
}

void RtspSession::listen(Reception& reception) {
    const auto index = static_cast<std::size_t>(&reception - receptions_.data());
    reception.order = std::make_unique<Reordering>(
        [this, index](std::string_view packet) { takePacket(receptions_[index], packet); });
    loop_.watch(reception.sockets.data, EPOLLIN,
                [this, index](std::uint32_t /*events*/) { onDatagrams(receptions_[index]); });
    loop_.watch(reception.sockets.control, EPOLLIN, [this, index](std::uint32_t /*events*/) {
        streams::receiveWaiting(receptions_[index].sockets.control, connection_.peer(),
                                [this](std::string_view packet) { takeReports(packet); });
    });
}

void RtspSession::play() {
    step_ = Step::starting;
    request("PLAY", control_, sessionLine() + "Range: npt=0.000-\r\n");
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
    info.video = trackOf(receptions_[0].described);
    if (receptions_[1].ready)
        info.sound = trackOf(receptions_[1].described);
    info.transport = overUdp_ ? "UDP" : "TCP";
    return info;
}

// ---- Packets.

void RtspSession::onChannel(int channel, std::string_view packet) {
    for (Reception& reception : receptions_) {
        if (!reception.ready || reception.channel < 0)
            continue;
        if (channel == reception.channel)
            return takePacket(reception, packet);
        if (channel == reception.channel + 1)
            return takeReports(packet);
    }
}

void RtspSession::onDatagrams(Reception& reception) {
    streams::receiveWaiting(reception.sockets.data, connection_.peer(),
                            [&](std::string_view packet) { reception.order->add(packet, gettimeusec()); });
    events_.pause();
}

void RtspSession::takePacket(Reception& reception, std::string_view packet) {
    const auto header = readRtp(packet);
    // Packets may come before the answer to PLAY.
    if (!header || (step_ != Step::playing && step_ != Step::starting))
        return;
    lastPacket_ = gettimeusec();
    reception.sender = header->source;
    const auto ahead =
        static_cast<std::int16_t>(header->sequence - static_cast<std::uint16_t>(reception.highest));
    reception.highest = reception.packets++ == 0
                            ? header->sequence
                            : reception.highest + static_cast<std::uint32_t>(std::max<int>(ahead, 0));
    if (step_ == Step::playing)
        events_.packet(reception.track, packet);
}

// RTCP; only a goodbye of the video matters.
void RtspSession::takeReports(std::string_view packet) {
    while (packet.size() >= 8) {
        const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(packet[at]); };
        if (byte(1) == goodbyeType && step_ == Step::playing)
            return end({Fault::ended, url_.place() + " ended the stream"});
        const std::size_t length = 4 * (std::size_t{1} + (byte(2) << 8 | byte(3)));
        packet.remove_prefix(std::min(length, packet.size()));
    }
}

void RtspSession::watchSilence() {
    silenceTimer_ = loop_.after(lookTime, [this] {
        const std::int64_t now = gettimeusec();
        for (Reception& reception : receptions_) {
            if (reception.order != nullptr)
                reception.order->look(now);
        }
        if (const Failure failure = silence(now); !failure.none())
            return end(failure);
        watchSilence();
    });
}

Failure RtspSession::silence(std::int64_t now) const {
    if (lastPacket_ != 0 && now - lastPacket_ > times_.silence.count() * 1000)
        return {Fault::silence, url_.place() + " has stopped sending"};
    const auto first = overUdp_ ? times_.firstDatagram : times_.firstPacket;
    if (lastPacket_ == 0 && now - started_ > first.count() * 1000)
        return {Fault::noPackets,
                url_.place() + " accepts the session and sends nothing" + (overUdp_ ? " over UDP" : "")};
    return {};
}

// Most servers keep a session alive while requests arrive, the others while reports arrive.
void RtspSession::keepAlive() {
    keepAliveTimer_ = loop_.after(std::chrono::milliseconds(500 * sessionTimeout_), [this] {
        request("GET_PARAMETER", control_, sessionLine());
        keepAlive();
    });
}

// An RTCP receiver report and our name.
void RtspSession::sendReports() {
    for (const Reception& reception : receptions_) {
        if (!reception.ready)
            continue;
        std::string report;
        const bool block = reception.packets > 0;
        append(report, block ? 0x81c90007 : 0x80c90001);
        append(report, reporter_);
        if (block) {
            append(report, reception.sender);
            append(report, 0); // losses are not told: cameras lower their quality for them
            append(report, reception.highest);
            for (int i = 0; i < 3; ++i)
                append(report, 0);
        }
        append(report, 0x81ca0004); // source description with one source
        append(report, reporter_);
        report += std::string("\1\7decoder\0\0\0", 12); // CNAME, padded
        if (reception.channel >= 0) {
            connection_.send(std::string{'$', static_cast<char>(reception.channel + 1),
                                         static_cast<char>(report.size() >> 8),
                                         static_cast<char>(report.size() & 255)} +
                             report);
        } else if (reception.reportPort > 1) {
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(static_cast<std::uint16_t>(reception.reportPort));
            if (inet_pton(AF_INET, connection_.peer().c_str(), &to.sin_addr) == 1)
                sendto(reception.sockets.control, report.data(), report.size(), MSG_DONTWAIT,
                       reinterpret_cast<const sockaddr*>(&to), sizeof to);
        }
    }
    reportTimer_ = loop_.after(reportTime, [this] { sendReports(); });
}

// Best effort: what the socket does not take at once is lost.
void RtspSession::tearDown() {
    if (session_.empty() || !connection_.isOpen())
        return;
    const std::string answer = credentials_.answer("TEARDOWN", control_);
    connection_.send("TEARDOWN " + control_ + " RTSP/1.0\r\nCSeq: " + std::to_string(++sequence_) + "\r\n" +
                     (answer.empty() ? "" : "Authorization: " + answer + "\r\n") + sessionLine() + "\r\n");
}

void RtspSession::end(const Failure& failure) {
    if (step_ == Step::ended)
        return;
    tearDown();
    step_ = Step::ended;
    session_.clear();
    connection_.close();
    for (EventLoop::Timer* timer : {&answerTimer_, &silenceTimer_, &keepAliveTimer_, &reportTimer_})
        loop_.cancel(*timer);
    events_.ended(failure);
}

} // namespace gateway
