#include "appliance/streams/rtsp_stream.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <glib.h>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace streams {
namespace {

constexpr int endMs = 150;
constexpr int tearDownMs = 75;
constexpr int pollMs = 500;
constexpr std::int64_t reportUs = 5'000'000;
// After the connection has closed, datagrams may still arrive, and a multicast group may carry the BYE of an earlier
// sender. So a closed connection or a BYE ends the stream only after this time without a video packet.
constexpr std::int64_t silenceUs = 1'000'000;
constexpr int goodbyeType = 203; // RTCP BYE

std::string urlOf(const RtspSource& source) {
    const bool bracketed = source.host.find(':') != std::string::npos && source.host.front() != '[';
    return std::string("rtsp://") + (bracketed ? "[" : "") + source.host + (bracketed ? "]" : "") + ":" +
           std::to_string(source.port) + source.path;
}

std::string refusal(const char* method, const std::optional<RtspMessage>& answer) {
    return std::string(method) +
           (answer ? " was answered with " + std::to_string(answer->status) : " was not answered");
}

bool isGood(const std::optional<RtspMessage>& answer) {
    return answer && answer->status == 200;
}

bool isInterleaved(RtspTransport transport) {
    return transport == RtspTransport::tcp || transport == RtspTransport::http;
}

} // namespace

RtspStream::RtspStream(RtspSource source, RtspReceiver receiver)
    : source_(std::move(source)), receiver_(std::move(receiver)),
      client_(source_, [this](int channel, std::string_view packet) { takeChannel(channel, packet); }),
      url_(urlOf(source_)), reporter_(g_random_int()), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

RtspStream::~RtspStream() {
    for (const int fd :
         {wake_, video_.sockets.data, video_.sockets.control, sound_.sockets.data, sound_.sockets.control})
        if (fd >= 0)
            close(fd);
}

std::string RtspStream::sessionLine() const {
    return session_.empty() ? "" : "Session: " + session_ + "\r\n";
}

std::string RtspStream::run() {
    std::string reason = begin();
    if (reason.empty()) {
        receiving_ = true;
        reason = receive();
    }
    tearDown();
    return reason;
}

// Sends all requests up to PLAY. Returns "" or the reason of the failure.
std::string RtspStream::begin() {
    std::string failure = client_.open();
    if (failure.empty())
        failure = describe();
    if (failure.empty())
        failure = setUpVideo();
    if (failure.empty() && description_.sound)
        setUpSound();
    return failure.empty() ? play() : failure;
}

std::string RtspStream::describe() {
    const auto answer = client_.request("DESCRIBE", url_, "Accept: application/sdp\r\n");
    if (!isGood(answer))
        return refusal("DESCRIBE", answer);
    std::string base = answer->header("Content-Base");
    if (base.find("://") == std::string::npos)
        base = url_;
    std::string reason;
    const auto description =
        readDescription(answer->body, base, receiver_.usesVideo, receiver_.usesSound, reason);
    if (!description)
        return reason;
    description_ = *description;
    return "";
}

std::string RtspStream::setUpVideo() {
    std::string failure = setUp(*description_.video, 0, video_);
    if (failure.empty())
        failure = receiver_.beginVideo(*description_.video, isInterleaved(source_.transport));
    video_.begun = failure.empty();
    return failure;
}

void RtspStream::setUpSound() {
    const std::string failure = setUp(*description_.sound, 1, sound_);
    if (!failure.empty())
        return receiver_.noSound(failure);
    receiver_.beginSound(*description_.sound);
    sound_.begun = true;
}

std::string RtspStream::transportLine(int number, Reception& reception) const {
    switch (source_.transport) {
    case RtspTransport::multicast:
        return "Transport: RTP/AVP;multicast\r\n";
    case RtspTransport::tcp:
    case RtspTransport::http:
        reception.dataChannel = 2 * number;
        return "Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(2 * number) + "-" +
               std::to_string(2 * number + 1) + "\r\n";
    case RtspTransport::unicast:
        break;
    }
    // The supervisor's port pairs are four apart, so the pair after the video's is free for the sound.
    const int wanted = source_.udpPort == 0 ? 0 : std::min(source_.udpPort + 2 * number, 65534);
    reception.sockets = bindPair(static_cast<std::uint16_t>(wanted));
    if (reception.sockets.data < 0)
        return "";
    return "Transport: RTP/AVP;unicast;client_port=" + std::to_string(reception.sockets.port) + "-" +
           std::to_string(reception.sockets.port + 1) + "\r\n";
}

std::string RtspStream::setUp(const DescribedStream& stream, int number, Reception& reception) {
    const std::string transport = transportLine(number, reception);
    if (transport.empty())
        return "there are no ports to receive on";
    const auto answer = client_.request("SETUP", stream.control, transport + sessionLine());
    if (!isGood(answer))
        return refusal("SETUP", answer);
    const std::string session = answer->header("Session");
    session_ = session.substr(0, session.find_first_of("; \t"));
    if (const int timeout = numberAt(parameterIn(session, "timeout")); timeout > 0)
        sessionTimeout_ = timeout;
    return acceptTransport(answer->header("Transport"), reception);
}

std::string RtspStream::acceptTransport(const std::string& answer, Reception& reception) const {
    reception.ready = true;
    if (isInterleaved(source_.transport)) {
        const int channel = numberAt(parameterIn(answer, "interleaved"));
        if (channel >= 0)
            reception.dataChannel = channel;
        return "";
    }
    if (source_.transport == RtspTransport::unicast)
        return "";
    const std::string group = parameterIn(answer, "destination");
    const int port = numberAt(parameterIn(answer, "port"));
    if (group.empty() || port < 1 || port > 65534)
        return "the answer to SETUP names no group to receive";
    reception.sockets.data = joinGroup(group, static_cast<std::uint16_t>(port));
    reception.sockets.control = joinGroup(group, static_cast<std::uint16_t>(port + 1));
    return reception.sockets.data < 0 ? "the group can't be joined" : "";
}

std::string RtspStream::play() {
    from_ = source_.transport == RtspTransport::unicast ? client_.peer() : "";
    const auto answer = client_.request("PLAY", description_.control, sessionLine());
    if (!isGood(answer))
        return refusal("PLAY", answer);
    lastPacket_ = gettimeusec();
    nextKeepAlive_ = lastPacket_ + std::int64_t{500'000} * sessionTimeout_;
    nextReport_ = lastPacket_ + reportUs;
    return "";
}

// Receives until the stream ends; returns the reason.
std::string RtspStream::receive() {
    for (;;) {
        const bool good = receiveOnce();
        const std::int64_t now = gettimeusec();
        {
            const std::lock_guard guard(lock_);
            if (endAsked_)
                return "asked to end";
        }
        if (refused_)
            return "the decoder failed";
        const bool silent = now - lastPacket_ > silenceUs;
        const bool multicast = source_.transport == RtspTransport::multicast;
        if (!good || (saidGoodbye_ && (!multicast || silent)))
            return "the encoder ended the stream";
        if (!connected_ && (video_.sockets.data < 0 || silent))
            return "the encoder closed the connection";
        keepAlive();
    }
}

// Waits for packets and takes them. False when a socket broke.
bool RtspStream::receiveOnce() {
    std::array<pollfd, 6> watched{{{wake_, POLLIN, 0},
                                   {connected_ ? client_.descriptor() : -1, POLLIN, 0},
                                   {video_.sockets.data, POLLIN, 0},
                                   {video_.sockets.control, POLLIN, 0},
                                   {sound_.sockets.data, POLLIN, 0},
                                   {sound_.sockets.control, POLLIN, 0}}};
    poll(watched.data(), watched.size(), pollMs);
    if (connected_ && watched[1].revents != 0) {
        connected_ = client_.read();
        client_.dropAnswers();
    }
    const auto take = [&](std::size_t index, const std::function<void(std::string_view)>& packet) {
        return watched[index].fd < 0 || watched[index].revents == 0 ||
               receiveWaiting(watched[index].fd, from_, packet);
    };
    return take(2, [this](std::string_view packet) { takeVideo(packet); }) &&
           take(3, [this](std::string_view packet) { takeControl(packet); }) &&
           take(4, [this](std::string_view packet) { takeSound(packet); }) &&
           take(5, [](std::string_view /*packet*/) {});
}

void RtspStream::takeVideo(std::string_view packet) {
    lastPacket_ = gettimeusec();
    saidGoodbye_ = false;
    refused_ = refused_ || !receiver_.video(packet);
}

void RtspStream::takeSound(std::string_view packet) {
    if (sound_.begun)
        receiver_.sound(packet);
}

// A datagram of RTCP packets; only a BYE matters.
void RtspStream::takeControl(std::string_view packet) {
    while (packet.size() >= 4) {
        const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(packet[at]); };
        if (byte(1) == goodbyeType)
            saidGoodbye_ = true;
        const std::size_t length = 4 * (std::size_t{1} + (byte(2) << 8 | byte(3)));
        packet.remove_prefix(std::min(length, packet.size()));
    }
}

void RtspStream::takeChannel(int channel, std::string_view packet) {
    if (!video_.ready || !video_.begun)
        return;
    if (channel == video_.dataChannel)
        takeVideo(packet);
    else if (channel == video_.dataChannel + 1)
        takeControl(packet);
    else if (sound_.ready && channel == sound_.dataChannel)
        takeSound(packet);
}

// Most servers keep a session alive while requests arrive, the others while reports arrive.
void RtspStream::keepAlive() {
    const std::int64_t now = gettimeusec();
    if (connected_ && now >= nextKeepAlive_) {
        client_.send("GET_PARAMETER", description_.control, sessionLine());
        nextKeepAlive_ = now + std::int64_t{500'000} * sessionTimeout_;
    }
    if (now >= nextReport_) {
        sendReport();
        nextReport_ = now + reportUs;
    }
}

// Sends an empty RTCP receiver report with a name. Only on the connection: over UDP the requests suffice.
void RtspStream::sendReport() {
    if (video_.dataChannel < 0 || !connected_)
        return;
    const auto append = [](std::string& to, std::uint32_t word) {
        for (const int shift : {24, 16, 8, 0})
            to += static_cast<char>(word >> shift & 255);
    };
    std::string report;
    append(report, 0x80c90001); // version 2, receiver report without blocks
    append(report, reporter_);
    append(report, 0x81ca0004); // source description with one source
    append(report, reporter_);
    report += std::string("\1\7decoder\0\0\0", 12); // CNAME, padded
    connected_ = client_.sendPacket(video_.dataChannel + 1, report);
}

void RtspStream::tearDown() {
    if (connected_ && !session_.empty())
        client_.request("TEARDOWN", description_.control, sessionLine(), tearDownMs);
    const std::lock_guard guard(lock_);
    hasEnded_ = true;
    ended_.notify_all();
}

void RtspStream::endSoon() {
    const std::lock_guard guard(lock_);
    endAsked_ = true;
    eventfd_write(wake_, 1);
}

void RtspStream::end() {
    if (!receiving_)
        return;
    std::unique_lock guard(lock_);
    endAsked_ = true;
    eventfd_write(wake_, 1);
    ended_.wait_for(guard, std::chrono::milliseconds(endMs), [this] { return hasEnded_; });
}

} // namespace streams
