#include "appliance/gateway/serving/http_answers.h"

#include "appliance/serving/parameter_table.h"
#include "appliance/serving/status_reason.h"
#include "appliance/serving/text.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace gateway {
namespace {

constexpr const char* boundary = "camera-gateway-picture";

DeviceFacts factsOf(const Cameras& cameras) {
    return {.model = "Camera gateway",
            .apiVersion = 2,
            .rotation = 0,
            .inputs = static_cast<std::size_t>(std::max(cameras.highestNumber(), 1)),
            .imageFormats = "jpeg,mjpeg,mpeg4"};
}

std::string pictureHead() {
    return std::string(
               "HTTP/1.1 200 OK\r\nServer: camera-gateway\r\nContent-Type: multipart/x-mixed-replace; "
               "boundary=") +
           boundary + "\r\nConnection: close\r\n\r\n--" + boundary + "\r\n";
}

// Where no camera is meant, decoders only want to know whether there is such a stream at all.
std::optional<int> wantedCamera(std::string_view query) {
    const auto camera = queryField(query, "camera");
    return camera ? wholeNumber(*camera) : std::nullopt;
}

} // namespace

HttpAnswers::HttpAnswers(Cameras& cameras, PlayerSocket& socket, WatchedCamera& watched,
                         std::function<void()> over)
    : cameras_(cameras), socket_(socket), watched_(watched), over_(std::move(over)) {}

void HttpAnswers::reply(int status, const std::string& text) {
    socket_.send("HTTP/1.1 " + std::to_string(status) + " " + reasonOf(status) +
                 "\r\nServer: camera-gateway\r\nContent-Type: text/plain\r\nContent-Length: " +
                 std::to_string(text.size()) + "\r\nConnection: " +
                 (socket_.endsAfterSending() ? "close" : "keep-alive") + "\r\n\r\n" + text);
    socket_.flush();
}

void HttpAnswers::refuse(const std::string& mistake) {
    socket_.endAfterSending(true);
    reply(400, mistake + "\n");
}

void HttpAnswers::serve(const Request& request) {
    const std::string_view wanted = request.header("Connection").value_or("");
    socket_.endAfterSending(request.minorVersion >= 1 ? equalIgnoringCase(wanted, "close")
                                                      : !equalIgnoringCase(wanted, "keep-alive"));
    if (request.method != "GET") {
        socket_.endAfterSending(true);
        return reply(405, "only GET is known here\n");
    }
    if (const auto answer = Parameters(factsOf(cameras_)).replyTo(request))
        return reply(answer->status, answer->text);
    if (request.path() == "/vexo-cgi/mjpg/video.cgi")
        return servePictures(request);
    reply(404, "there is no such page\n");
}

void HttpAnswers::servePictures(const Request& request) {
    const std::optional<int> number = wantedCamera(request.query());
    if (!number) {
        socket_.endAfterSending(true);
        socket_.send(pictureHead());
        return socket_.flush();
    }
    if (!watched_.choose(*number))
        return reply(404, "there is no camera with this number\n");
    watched_.ask(*number, [this, number](const StreamInfo& info, const Failure& failure) {
        beginPictures(*number, info, failure);
    });
}

void HttpAnswers::beginPictures(int number, const StreamInfo& info, const Failure& failure) {
    if (!failure.none() || !info.isPictures()) {
        socket_.endAfterSending(true);
        const bool other = failure.none();
        return reply(other ? 404 : 503, (other ? "this camera is played over RTSP" : failure.text) + "\n");
    }
    socket_.send(pictureHead());
    watched_.join(number, {.packet = [](Track, const streams::Packet&, bool) {},
                           .picture = [this](const streams::Packet& jpeg) { takePicture(jpeg); },
                           .flush = [this] { socket_.flush(); },
                           .ended = [this](const Failure&) { over_(); }});
    socket_.flush();
}

// A picture that comes while the last one is not sent yet is left out: the newest one counts.
void HttpAnswers::takePicture(const streams::Packet& jpeg) {
    if (socket_.waiting() > jpeg->size())
        return;
    socket_.send("Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(jpeg->size()) + "\r\n\r\n");
    socket_.send(*jpeg);
    socket_.send(std::string("\r\n--") + boundary + "\r\n");
}

} // namespace gateway
