#include "appliance/gateway/serving/player_connection.h"

#include "appliance/gateway/serving/description.h"
#include "appliance/serving/media_path.h"
#include "appliance/serving/parameter_table.h"
#include "appliance/serving/protocol.h"
#include "appliance/serving/status_reason.h"
#include "appliance/serving/text.h"
#include "appliance/streams/rtsp_message.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <random>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::size_t readBytes = 16 * 1024;
constexpr std::size_t mostWaiting = 4 * 1024 * 1024;
constexpr std::size_t calmWaiting = 256 * 1024; // from here on a player that was too slow gets pictures again
constexpr std::chrono::milliseconds lookTime(2000);
constexpr std::int64_t stuckUs = 15'000'000; // the other side takes nothing
constexpr std::int64_t idleUs = 65'000'000;  // it neither plays nor asks
constexpr std::int64_t headUs = 10'000'000;  // for a whole request
constexpr std::string_view pictureBoundary = "camera-gateway-picture";
constexpr const char* model = "Camera gateway";

std::string sessionNumber() {
    return std::to_string(std::random_device{}() % 900000000U +
                          100000000U); // decimal: supervisors expect that
}

DeviceFacts factsOf(const Cameras& cameras) {
    return {.model = model,
            .apiVersion = 2,
            .rotation = 0,
            .inputs = static_cast<std::size_t>(std::max(cameras.highestNumber(), 1)),
            .imageFormats = "jpeg,mjpeg,mpeg4"};
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

// Where no camera is meant, decoders only want to know whether there is such a stream at all.
std::optional<int> wantedCamera(std::string_view query) {
    const auto camera = queryField(query, "camera");
    return camera ? wholeNumber(*camera) : std::nullopt;
}

} // namespace

PlayerConnection::PlayerConnection(EventLoop& loop, Cameras& cameras, int fd, std::function<void()> ended)
    : loop_(loop), cameras_(cameras), fd_(fd), ended_(std::move(ended)), lastProgress_(gettimeusec()),
      session_(sessionNumber()) {
    const int on = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t events) { onReady(events); });
    watchTime();
}

PlayerConnection::~PlayerConnection() {
    *alive_ = false;
    stopPlaying();
    loop_.cancel(timer_);
    loop_.forget(fd_);
    close(fd_);
}

// ---- Bytes.

void PlayerConnection::onReady(std::uint32_t events) {
    if (over_)
        return;
    if ((events & EPOLLOUT) != 0) {
        writable_ = true;
        flush();
    }
    if (!over_ && (events & ~std::uint32_t{EPOLLOUT}) != 0) {
        if (!readSome())
            return end();
        takeReceived();
        flush();
    }
}

bool PlayerConnection::readSome() {
    std::array<char, readBytes> bytes{};
    const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0)
        return errno == EAGAIN || errno == EINTR;
    lastProgress_ = gettimeusec();
    received_.append(bytes.data(), static_cast<std::size_t>(count));
    // One who sends without reading the answers gets no more of them.
    return count > 0 && received_.size() <= 4 * maxHeadBytes;
}

void PlayerConnection::takeReceived() {
    while (!over_ && !asking_ && !endAfterSending_ && (takeInterleaved() || takeRequest())) {
    }
}

// Reports of a player, between its requests. They are not needed.
bool PlayerConnection::takeInterleaved() {
    constexpr std::size_t header = 4;
    if (received_.size() < header || received_[0] != '$')
        return false;
    const std::size_t length = static_cast<std::size_t>(static_cast<std::uint8_t>(received_[2])) << 8 |
                               static_cast<std::uint8_t>(received_[3]);
    if (received_.size() < header + length)
        return false;
    received_.erase(0, header + length);
    return true;
}

bool PlayerConnection::takeRequest() {
    received_.erase(0, std::min(received_.find_first_not_of("\r\n"), received_.size()));
    if (received_.empty() || received_[0] == '$')
        return false;
    const auto length = headLength(received_);
    if (!length && received_.size() <= maxHeadBytes)
        return false;
    std::optional<Request> request =
        length && *length <= maxHeadBytes ? parseHead(received_.substr(0, *length)) : std::nullopt;
    if (!request) {
        endAfterSending_ = true;
        replyHttp(400, "text/plain", "not a request\n");
        return false;
    }
    const std::optional<int> body = wholeNumber(request->header("Content-Length").value_or("0"));
    if (!body || *body > static_cast<int>(maxHeadBytes)) {
        endAfterSending_ = true;
        replyHttp(400, "text/plain", "the body is too long\n");
        return false;
    }
    if (received_.size() < *length + static_cast<std::size_t>(*body))
        return false;
    received_.erase(0, *length + static_cast<std::size_t>(*body));
    if (request->protocol == "RTSP")
        serveRtsp(*request);
    else
        serveHttp(*request);
    return true;
}

void PlayerConnection::send(std::string_view bytes) {
    waiting_ += bytes;
}

void PlayerConnection::flush() {
    while (!over_ && writable_ && sent_ < waiting_.size()) {
        const ssize_t count =
            ::send(fd_, waiting_.data() + sent_, waiting_.size() - sent_, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno != EAGAIN)
            return end();
        if (count < 0) {
            writable_ = false;
            loop_.change(fd_, EPOLLIN | EPOLLOUT);
            return;
        }
        lastProgress_ = gettimeusec();
        sent_ += static_cast<std::size_t>(count);
    }
    if (sent_ == waiting_.size()) {
        waiting_.clear();
        sent_ = 0;
        loop_.change(fd_, EPOLLIN);
        if (endAfterSending_)
            end();
    }
}

void PlayerConnection::watchTime() {
    timer_ = loop_.after(lookTime, [this] {
        const std::int64_t quiet = gettimeusec() - lastProgress_;
        const bool stuck = sent_ < waiting_.size() && quiet > stuckUs;
        const bool halfAsked = !received_.empty() && !asking_ && viewer_ == 0 && quiet > headUs;
        const bool idle = viewer_ == 0 && !asking_ && quiet > idleUs;
        if (stuck || halfAsked || idle)
            return end();
        watchTime();
    });
}

void PlayerConnection::end() {
    if (std::exchange(over_, true))
        return;
    stopPlaying();
    loop_.forget(fd_);
    loop_.cancel(timer_);
    ended_();
}

void PlayerConnection::stopPlaying() {
    if (Camera* camera = cameras_.find(number_); camera != nullptr && viewer_ != 0)
        camera->leave(viewer_);
    viewer_ = 0;
    number_ = 0;
}

// ---- HTTP.

void PlayerConnection::replyHttp(int status, const std::string& type, const std::string& body) {
    send("HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) +
         "\r\nServer: camera-gateway\r\nContent-Type: " + type +
         "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\nConnection: " + (endAfterSending_ ? "close" : "keep-alive") + "\r\n\r\n" + body);
    flush();
}

void PlayerConnection::serveHttp(const Request& request) {
    const std::string_view wanted = request.header("Connection").value_or("");
    endAfterSending_ = request.minorVersion >= 1 ? equalIgnoringCase(wanted, "close")
                                                 : !equalIgnoringCase(wanted, "keep-alive");
    if (request.method != "GET") {
        endAfterSending_ = true;
        return replyHttp(405, "text/plain", "only GET is known here\n");
    }
    if (const auto reply = Parameters(factsOf(cameras_)).replyTo(request))
        return replyHttp(reply->status, "text/plain", reply->text);
    if (request.path() == "/vexo-cgi/mjpg/video.cgi")
        return servePictures(request);
    replyHttp(404, "text/plain", "there is no such page\n");
}

void PlayerConnection::servePictures(const Request& request) {
    const std::string head =
        "HTTP/1.1 200 OK\r\nServer: camera-gateway\r\nContent-Type: multipart/x-mixed-replace; "
        "boundary=" +
        std::string(pictureBoundary) + "\r\nConnection: close\r\n\r\n--" + std::string(pictureBoundary) +
        "\r\n";
    const std::optional<int> number = wantedCamera(request.query());
    if (!number) {
        endAfterSending_ = true;
        send(head);
        return flush();
    }
    Camera* camera = cameras_.find(*number);
    if (camera == nullptr)
        return replyHttp(404, "text/plain", "there is no camera with this number\n");
    asking_ = true;
    camera->ask([this, alive = alive_, number, head](const StreamInfo& info, const Failure& failure) {
        if (!*alive || over_)
            return;
        asking_ = false;
        if (!failure.none() || !info.isPictures()) {
            endAfterSending_ = true;
            return replyHttp(failure.none() ? 404 : 503, "text/plain",
                             (failure.none() ? "this camera is played over RTSP" : failure.text) + "\n");
        }
        send(head);
        number_ = *number;
        viewer_ = cameras_.find(number_)->join(pictureViewer());
        flush();
    });
}

Viewer PlayerConnection::pictureViewer() {
    return {.packet = [](Track, const Packet&, bool) {},
            .picture = [this](const Packet& jpeg) { takePicture(jpeg); },
            .flush = [this] { flush(); },
            .ended =
                [this](const Failure&) {
                    viewer_ = 0;
                    loop_.later([this, alive = alive_] {
                        if (*alive)
                            end();
                    });
                }};
}

// A picture that comes while the last one is not sent yet is left out: the newest one counts.
void PlayerConnection::takePicture(const Packet& jpeg) {
    if (sent_ < waiting_.size() && waiting_.size() - sent_ > jpeg->size())
        return;
    send("Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg->size()) + "\r\n\r\n");
    send(*jpeg);
    send("\r\n--" + std::string(pictureBoundary) + "\r\n");
}

// ---- RTSP.

void PlayerConnection::replyRtsp(const Request& request, int status, const std::string& reason,
                                 const std::string& headers, const std::string& body) {
    const auto sequence = request.header("CSeq");
    send("RTSP/1.0 " + std::to_string(status) + " " +
         (reason.empty() ? std::string(reasonOf(status)) : libcommon::printable(reason)) + "\r\n" +
         (sequence ? "CSeq: " + std::string(*sequence) + "\r\n" : "") + "Server: camera-gateway\r\n" +
         headers + (body.empty() ? "" : "Content-Length: " + std::to_string(body.size()) + "\r\n") + "\r\n" +
         body);
    flush();
}

void PlayerConnection::serveRtsp(const Request& request) {
    const std::string& method = request.method;
    if (method == "OPTIONS")
        return replyRtsp(
            request, 200, "",
            "Public: OPTIONS, DESCRIBE, SETUP, PLAY, TEARDOWN, GET_PARAMETER, SET_PARAMETER\r\n");
    if (method == "GET_PARAMETER" || method == "SET_PARAMETER")
        return replyRtsp(request, 200, "", "Session: " + session_ + "\r\n");
    if (method == "TEARDOWN") {
        stopPlaying();
        channels_ = {-1, -1};
        return replyRtsp(request, 200, "", "Session: " + session_ + "\r\n");
    }
    const std::optional<int> number = mediaChannelOf(request.path());
    if (!number || cameras_.find(*number) == nullptr)
        return replyRtsp(request, 404, "", "");
    if (method == "DESCRIBE")
        return describe(request, *number);
    if (method == "SETUP")
        return setUp(request, *number);
    if (method == "PLAY")
        return play(request, *number);
    replyRtsp(request, method == "PAUSE" ? 455 : 501, "", "");
}

void PlayerConnection::describe(const Request& request, int number) {
    asking_ = true;
    Camera& camera = *cameras_.find(number);
    camera.ask([this, alive = alive_, request, name = camera.settings().name](const StreamInfo& info,
                                                                              const Failure& failure) {
        if (!*alive || over_)
            return;
        asking_ = false;
        // The reason is a phrase of the status line, which a detection records for `decoderctl explain`.
        if (!failure.none())
            replyRtsp(request, 503, failure.text, "");
        else if (info.isPictures())
            replyRtsp(request, 404, "this camera is played as Motion JPEG", "");
        else
            replyRtsp(request, 200, "",
                      "Content-Type: application/sdp\r\nContent-Base: " + request.target + "/\r\n",
                      gateway::describe(info, name));
        loop_.later([this, alive] { // requests that came meanwhile
            if (!*alive)
                return;
            takeReceived();
            flush();
        });
    });
}

void PlayerConnection::setUp(const Request& request, int number) {
    const std::size_t track = trackOf(request.path());
    const int channel = channelOf(request.header("Transport").value_or(""), track);
    if (channel < 0)
        return replyRtsp(request, 461, "", "");
    if (viewer_ != 0 || (number_ != 0 && number_ != number))
        return replyRtsp(request, 455, "", "");
    const CameraReport report = cameras_.find(number)->report();
    if (track == 1 && !(report.open && report.info.sound))
        return replyRtsp(request, 404, "", "");
    number_ = number;
    channels_.at(track) = channel;
    replyRtsp(request, 200, "",
              "Session: " + session_ + ";timeout=60\r\nTransport: RTP/AVP/TCP;unicast;interleaved=" +
                  std::to_string(channel) + "-" + std::to_string(channel + 1) + "\r\n");
}

void PlayerConnection::play(const Request& request, int number) {
    if (number_ != number || (channels_[0] < 0 && channels_[1] < 0))
        return replyRtsp(request, 454, "", "");
    if (viewer_ != 0)
        return replyRtsp(request, 200, "", "Session: " + session_ + "\r\n");
    asking_ = true;
    cameras_.find(number)->ask(
        [this, alive = alive_, request](const StreamInfo& /*info*/, const Failure& failure) {
            if (!*alive || over_)
                return;
            asking_ = false;
            if (!failure.none())
                return replyRtsp(request, 503, failure.text, "");
            replyRtsp(request, 200, "", "Session: " + session_ + "\r\nRange: npt=now-\r\n");
            dropping_ = true; // a player begins with a key picture
            if (Camera* camera = cameras_.find(number_))
                viewer_ = camera->join(packetViewer());
        });
}

Viewer PlayerConnection::packetViewer() {
    Viewer viewer = pictureViewer();
    viewer.packet = [this](Track track, const Packet& packet, bool start) {
        takePacket(track, packet, start);
    };
    viewer.picture = [](const Packet&) {};
    return viewer;
}

void PlayerConnection::takePacket(Track track, const Packet& packet, bool start) {
    const int channel = channels_.at(track == Track::video ? 0 : 1);
    if (channel < 0)
        return;
    const std::size_t waiting = waiting_.size() - sent_;
    if (waiting > mostWaiting)
        dropping_ = true;
    if (dropping_ && track == Track::video) {
        if (!start || waiting > calmWaiting)
            return;
        dropping_ = false;
    }
    const std::array<char, 4> header{'$', static_cast<char>(channel), static_cast<char>(packet->size() >> 8),
                                     static_cast<char>(packet->size() & 255)};
    send({header.data(), header.size()});
    send(*packet);
}

} // namespace gateway
