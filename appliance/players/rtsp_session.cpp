#include "appliance/players/rtsp_session.h"

#include "appliance/players/rtp_decoding.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <glib.h>
#include <poll.h>
#include <sys/eventfd.h>

namespace player {
namespace {

constexpr int partingMs = 150;
constexpr std::int64_t reportUs = 5'000'000;
// After the connection went, datagrams may still come, and to a multicast group somebody else may have said
// goodbye: the sender of a stream that was asked for before. When no packet came for so long, it was the end.
constexpr std::int64_t silenceUs = 1'000'000;
constexpr int controlGoodbye = 203;

std::string urlOf(const PlayerOptions& options) {
    const bool bracketed = options.host.find(':') != std::string::npos && options.host.front() != '[';
    const std::string camera = options.sourceNumber == 0 ? "quad" : std::to_string(options.sourceNumber);
    return std::string("rtsp://") + (bracketed ? "[" : "") + options.host + (bracketed ? "]" : "") + ":" +
           std::to_string(options.port) + "/mpeg4/" + camera + "/media.orv";
}

std::string refused(const char* method, const std::optional<RtspMessage>& answer) {
    return std::string(method) +
           (answer ? " was answered with " + std::to_string(answer->status) : " was not answered");
}

bool isGood(const std::optional<RtspMessage>& answer) {
    return answer && answer->status == 200;
}

} // namespace

RtspSession::RtspSession(const PlayerOptions& options, const StreamSink& sink)
    : options_(options), sink_(sink),
      connection_(options, [this](int channel, std::string_view packet) { takeChannel(channel, packet); }),
      url_(urlOf(options)), source_(g_random_int()), wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

int RtspSession::patience() const {
    return options_.patienceMs > 0 ? options_.patienceMs : 10'000;
}

std::string RtspSession::sessionLine() const {
    return session_.empty() ? "" : "Session: " + session_ + "\r\n";
}

void RtspSession::run() {
    std::string reason = begin();
    if (reason.empty()) {
        receiving_ = true;
        reason = receive();
    }
    leave();
    sink_.ended(reason);
}

// Up to the stream's start: "" or why there is none.
std::string RtspSession::begin() {
    std::string failure = connection_.open();
    if (failure.empty())
        failure = describe();
    if (failure.empty())
        failure = setUp(*content_.video, 0, video_);
    if (failure.empty())
        failure = startDecoding();
    if (failure.empty() && content_.sound) {
        const std::string silent = setUp(*content_.sound, 1, sound_);
        if (silent.empty())
            player_ = new RtpSound(sink_, content_.sound->caps);
        else if (options_.verbose)
            logmsg(7, "No sound: %s", silent.c_str());
    }
    return failure.empty() ? play() : failure;
}

std::string RtspSession::describe() {
    const auto answer = connection_.request("DESCRIBE", url_, "Accept: application/sdp\r\n", patience());
    if (!isGood(answer))
        return refused("DESCRIBE", answer);
    base_ = answer->header("Content-Base");
    if (base_.find("://") == std::string::npos)
        base_ = url_;
    std::string reason;
    const auto content = readSdp(answer->body, base_, reason);
    if (!content)
        return reason;
    content_ = *content;
    return "";
}

std::string RtspSession::transportLine(int number, Reception& reception) const {
    switch (options_.transport) {
    case Transport::multicast:
        return "Transport: RTP/AVP;multicast\r\n";
    case Transport::tcp:
    case Transport::http:
        reception.dataChannel = 2 * number;
        return "Transport: RTP/AVP/TCP;unicast;interleaved=" + std::to_string(2 * number) + "-" +
               std::to_string(2 * number + 1) + "\r\n";
    case Transport::unicast:
        break;
    }
    // The supervisor's pairs are four ports apart: sound has its own behind the picture's.
    const int wanted = options_.udpPort == 0 ? 0 : std::min(options_.udpPort + 2 * number, 65534);
    reception.sockets = bindPair(static_cast<std::uint16_t>(wanted));
    if (reception.sockets.data < 0)
        return "";
    return "Transport: RTP/AVP;unicast;client_port=" + std::to_string(reception.sockets.port) + "-" +
           std::to_string(reception.sockets.port + 1) + "\r\n";
}

std::string RtspSession::setUp(const SdpStream& stream, int number, Reception& reception) {
    const std::string transport = transportLine(number, reception);
    if (transport.empty())
        return "there are no ports to receive on";
    const auto answer = connection_.request("SETUP", stream.control, transport + sessionLine(), patience());
    if (!isGood(answer))
        return refused("SETUP", answer);
    const std::string session = answer->header("Session");
    session_ = session.substr(0, session.find_first_of("; \t"));
    if (const int timeout = numberAt(parameterIn(session, "timeout")); timeout > 0)
        sessionTimeout_ = timeout;
    return acceptTransport(answer->header("Transport"), reception);
}

std::string RtspSession::acceptTransport(const std::string& answer, Reception& reception) const {
    reception.playing = true;
    if (options_.transport == Transport::tcp || options_.transport == Transport::http) {
        const int channel = numberAt(parameterIn(answer, "interleaved"));
        if (channel >= 0)
            reception.dataChannel = channel;
        return "";
    }
    if (options_.transport == Transport::unicast)
        return "";
    const std::string group = parameterIn(answer, "destination");
    const int port = numberAt(parameterIn(answer, "port"));
    if (group.empty() || port < 1 || port > 65534)
        return "no group to receive in the answer to SETUP";
    reception.sockets.data = joinGroup(group, static_cast<std::uint16_t>(port));
    reception.sockets.control = joinGroup(group, static_cast<std::uint16_t>(port + 1));
    return reception.sockets.data < 0 ? "the group can't be joined" : "";
}

std::string RtspSession::startDecoding() {
    const RtpChain chain = videoChainOf(content_.video->encodingName);
    // On a connection packets come in their order.
    const bool ordered = video_.dataChannel >= 0;
    decoder_ =
        std::make_unique<DecoderPipeline>((ordered ? "" : std::string(reordering) + " ! ") + chain.elements,
                                          content_.video->caps, Feed::packets);
    return loadRtpPlugins(chain) && decoder_->start(sink_) ? "" : "the decoder can't be started";
}

std::string RtspSession::play() {
    from_ = options_.transport == Transport::unicast ? connection_.peer() : "";
    const auto answer = connection_.request("PLAY", content_.control, sessionLine(), patience());
    if (!isGood(answer))
        return refused("PLAY", answer);
    lastPacket_ = gettimeusec();
    nextSign_ = lastPacket_ + std::int64_t{500'000} * sessionTimeout_;
    nextReport_ = lastPacket_ + reportUs;
    return "";
}

// Until something ends it: why.
std::string RtspSession::receive() {
    for (;;) {
        const bool good = receiveOnce();
        const std::int64_t now = gettimeusec();
        {
            const std::lock_guard guard(lock_);
            if (partAsked_)
                return "asked to end";
        }
        if (failed_)
            return "the decoder failed";
        const bool silent = now - lastPacket_ > silenceUs;
        const bool alone = options_.transport != Transport::multicast;
        if (!good || (saidGoodbye_ && (alone || silent)))
            return "the encoder ended the stream";
        if (!connected_ && (video_.sockets.data < 0 || silent))
            return "the encoder closed the connection";
        stayAlive();
    }
}

// Waits for packets and takes them. False when a socket broke.
bool RtspSession::receiveOnce() {
    std::array<pollfd, 6> watched{{{wake_, POLLIN, 0},
                                   {connected_ ? connection_.descriptor() : -1, POLLIN, 0},
                                   {video_.sockets.data, POLLIN, 0},
                                   {video_.sockets.control, POLLIN, 0},
                                   {sound_.sockets.data, POLLIN, 0},
                                   {sound_.sockets.control, POLLIN, 0}}};
    poll(watched.data(), watched.size(), 500);
    if (connected_ && watched[1].revents != 0) {
        connected_ = connection_.read();
        connection_.forgetAnswers();
    }
    const auto take = [&](std::size_t index, const std::function<void(std::string_view)>& packet) {
        return watched[index].fd < 0 || watched[index].revents == 0 ||
               receiveWaiting(watched[index].fd, from_, packet);
    };
    return take(2, [this](std::string_view packet) { takeVideo(packet); }) &&
           take(3, [this](std::string_view packet) { takeControl(packet); }) &&
           take(4,
                [this](std::string_view packet) {
                    if (player_ != nullptr)
                        player_->feed(packet.data(), packet.size());
                }) &&
           take(5, [](std::string_view /*packet*/) {});
}

void RtspSession::takeVideo(std::string_view packet) {
    lastPacket_ = gettimeusec();
    saidGoodbye_ = false;
    failed_ = failed_ || !decoder_->feed(packet.data(), packet.size());
}

// RTCP: packets one behind the other; of interest is only whether one says goodbye.
void RtspSession::takeControl(std::string_view packet) {
    while (packet.size() >= 4) {
        const auto byte = [&](std::size_t at) { return static_cast<std::uint8_t>(packet[at]); };
        if (byte(1) == controlGoodbye)
            saidGoodbye_ = true;
        const std::size_t length = 4 * (std::size_t{1} + (byte(2) << 8 | byte(3)));
        packet.remove_prefix(std::min(length, packet.size()));
    }
}

void RtspSession::takeChannel(int channel, std::string_view packet) {
    if (!video_.playing || decoder_ == nullptr)
        return;
    if (channel == video_.dataChannel)
        takeVideo(packet);
    else if (channel == video_.dataChannel + 1)
        takeControl(packet);
    else if (sound_.playing && channel == sound_.dataChannel && player_ != nullptr)
        player_->feed(packet.data(), packet.size());
}

// Requests keep the session at most servers, reports at the others.
void RtspSession::stayAlive() {
    const std::int64_t now = gettimeusec();
    if (connected_ && now >= nextSign_) {
        connection_.send("GET_PARAMETER", content_.control, sessionLine());
        nextSign_ = now + std::int64_t{500'000} * sessionTimeout_;
    }
    if (now >= nextReport_) {
        sendReport();
        nextReport_ = now + reportUs;
    }
}

// An empty receiver report with a name, on the connection; over UDP the requests do.
void RtspSession::sendReport() {
    if (video_.dataChannel < 0 || !connected_)
        return;
    const auto append = [](std::string& to, std::uint32_t word) {
        for (const int shift : {24, 16, 8, 0})
            to += static_cast<char>(word >> shift & 255);
    };
    std::string report;
    append(report, 0x80c90001); // version 2, receiver report, no blocks
    append(report, source_);
    append(report, 0x81ca0004); // description of one source
    append(report, source_);
    report += std::string("\1\7decoder\0\0\0", 12); // its name, and the end
    connected_ = connection_.sendPacket(video_.dataChannel + 1, report);
}

void RtspSession::leave() {
    if (connected_ && !session_.empty())
        connection_.request("TEARDOWN", content_.control, sessionLine(), partingMs / 2);
    const std::lock_guard guard(lock_);
    hasParted_ = true;
    parted_.notify_all();
}

void RtspSession::part() {
    if (!receiving_)
        return;
    std::unique_lock guard(lock_);
    partAsked_ = true;
    eventfd_write(wake_, 1);
    parted_.wait_for(guard, std::chrono::milliseconds(partingMs), [this] { return hasParted_; });
}

} // namespace player
