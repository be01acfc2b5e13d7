#include "appliance/gateway/serving/rtsp_answers.h"

#include "appliance/gateway/serving/description.h"
#include "appliance/serving/media_path.h"
#include "appliance/serving/status_reason.h"
#include "appliance/serving/text.h"
#include "appliance/streams/rtsp_message.h"

#include <libcommon/text.h>

#include <algorithm>
#include <optional>
#include <random>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t mostWaiting = 4 * 1024 * 1024;
constexpr std::size_t calmWaiting = 256 * 1024; // from here on a player that was too slow gets pictures again

// Decimal: supervisors expect that.
std::string sessionNumber() {
    return std::to_string(std::random_device{}() % 900000000U + 100000000U);
}

// The track that a SETUP names: 0 video, 1 sound. A bare path means the video.
std::size_t trackOf(std::string_view path) {
    return path.ends_with(soundTrack) ? 1 : 0;
}

// The first channel of "RTP/AVP/TCP;unicast;interleaved=0-1"; -1 when the transport is another one. Several transports
// may be offered, separated by commas.
int channelOf(std::string_view transports, std::size_t track) {
    while (!transports.empty()) {
        const std::size_t end = std::min(transports.find(','), transports.size());
        const std::string_view one = trimmed(transports.substr(0, end));
        transports.remove_prefix(std::min(end + 1, transports.size()));
        if (!one.starts_with("RTP/AVP/TCP"))
            continue;
        const int channel = streams::numberAt(streams::parameterIn(one, "interleaved"));
        return channel >= 0 && channel < 255 ? channel : static_cast<int>(2 * track);
    }
    return -1;
}

} // namespace

RtspAnswers::RtspAnswers(Cameras& cameras, PlayerSocket& socket, WatchedCamera& watched,
                         std::function<void()> over)
    : cameras_(cameras), socket_(socket), watched_(watched), over_(std::move(over)),
      session_(sessionNumber()) {}

// `reason` replaces the status's own phrase: a detection records it for `decoderctl explain`.
void RtspAnswers::reply(const Request& request, int status, const std::string& headers,
                        const std::string& reason, const std::string& body) {
    const auto sequence = request.header("CSeq");
    socket_.send("RTSP/1.0 " + std::to_string(status) + " " +
                 (reason.empty() ? std::string(reasonOf(status)) : libcommon::printable(reason)) + "\r\n" +
                 (sequence ? "CSeq: " + std::string(*sequence) + "\r\n" : "") + "Server: camera-gateway\r\n" +
                 headers + (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") +
                 "\r\n" + body);
    socket_.flush();
}

void RtspAnswers::serve(const Request& request) {
    const std::string& method = request.method;
    if (method == "OPTIONS")
        return reply(request, 200,
                     "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER, SET_PARAMETER\r\n");
    if (method == "GET_PARAMETER" || method == "SET_PARAMETER")
        return reply(request, 200, sessionLine());
    if (method == "TEARDOWN") {
        stop();
        return reply(request, 200, sessionLine());
    }
    const std::optional<int> number = mediaChannelOf(request.path());
    if (!number || cameras_.find(*number) == nullptr)
        return reply(request, 404);
    serveCamera(request, *number);
}

void RtspAnswers::serveCamera(const Request& request, int number) {
    if (request.method == "DESCRIBE")
        return describe(request, number);
    if (request.method == "SETUP")
        return setUp(request, number);
    if (request.method == "PLAY")
        return play(request, number);
    reply(request, request.method == "PAUSE" ? 455 : 501);
}

void RtspAnswers::describe(const Request& request, int number) {
    if (!watched_.choose(number))
        return reply(request, 455);
    watched_.ask(
        number, [this, request, name = watched_.name()](const StreamInfo& info, const Failure& failure) {
            if (!failure.none())
                return reply(request, 503, "", failure.text);
            if (info.isPictures())
                return reply(request, 404, "", "this camera is played as Motion JPEG");
            reply(request, 200, "Content-Type: application/sdp\r\nContent-Base: " + request.target + "/\r\n",
                  "", gateway::describe(info, name));
        });
}

void RtspAnswers::setUp(const Request& request, int number) {
    const std::size_t track = trackOf(request.path());
    const int channel = channelOf(request.header("Transport").value_or(""), track);
    if (channel < 0)
        return reply(request, 461);
    if (watched_.isWatching() || (number_ != 0 && number_ != number))
        return reply(request, 455);
    // What was described is played, even if the configuration has changed since.
    if (watched_.number() != number)
        watched_.choose(number);
    const CameraReport report = watched_.report();
    if (track == 1 && !(report.open && report.info.sound))
        return reply(request, 404);
    number_ = number;
    channels_.at(track) = channel;
    reply(request, 200,
          "Session: " + session_ + ";timeout=60\r\nTransport: RTP/AVP/TCP;unicast;interleaved=" +
              std::to_string(channel) + "-" + std::to_string(channel + 1) + "\r\n");
}

void RtspAnswers::play(const Request& request, int number) {
    if (number_ != number || (channels_[0] < 0 && channels_[1] < 0))
        return reply(request, 454);
    if (watched_.isWatching())
        return reply(request, 200, sessionLine());
    watched_.ask(number, [this, request](const StreamInfo& /*info*/, const Failure& failure) {
        if (!failure.none())
            return reply(request, 503, "", failure.text);
        reply(request, 200, sessionLine() + "Range: npt=now-\r\n");
        begin();
    });
}

void RtspAnswers::stop() {
    watched_.leave();
    number_ = 0;
    channels_ = {-1, -1};
}

// ---- Packets.

void RtspAnswers::begin() {
    dropping_ = true; // a player begins with a key picture
    watched_.join(number_, {.packet = [this](Track track, const streams::Packet& packet,
                                             bool start) { takePacket(track, packet, start); },
                            .picture = [](const streams::Packet&) {},
                            .flush = [this] { socket_.flush(); },
                            .ended = [this](const Failure&) { over_(); }});
}

void RtspAnswers::takePacket(Track track, const streams::Packet& packet, bool start) {
    const int channel = channels_.at(track == Track::video ? 0 : 1);
    if (channel < 0)
        return;
    if (socket_.waiting() > mostWaiting)
        dropping_ = true;
    if (dropping_ && track == Track::video) {
        if (!start || socket_.waiting() > calmWaiting)
            return;
        dropping_ = false;
    }
    const std::array<char, 4> header{'$', static_cast<char>(channel), static_cast<char>(packet->size() >> 8),
                                     static_cast<char>(packet->size() & 255)};
    socket_.send({header.data(), header.size()});
    socket_.send(*packet);
}

} // namespace gateway
