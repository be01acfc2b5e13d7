#include "appliance/gateway/service/probe.h"

#include "appliance/gateway/cameras/camera.h"
#include "appliance/gateway/service/stream_status.h"
#include "appliance/streams/jpeg_check.h"
#include "appliance/streams/rtp/picture_size.h"

#include <libcommon/clock.h>
#include <libcommon/text.h>

#include <cstdio>
#include <iostream>
#include <optional>
#include <string>

namespace gateway {
namespace {

constexpr std::chrono::seconds longest(25);
constexpr std::chrono::seconds shortest(2);
constexpr std::chrono::seconds longestForKeys(9); // when key pictures are rare

void print(const char* key, const std::string& value) {
    std::printf("%s=%s\n", key, libcommon::printable(value).c_str());
}

class Probe {
public:
    Probe(EventLoop& loop, const CameraUrl& url)
        : loop_(loop), transfers_(loop),
          camera_(loop, transfers_, CameraSettings{.number = 1, .name = "camera", .mistake = "", .url = url},
                  {}, [](const Camera& /*camera*/) {}) {}

    // The failure, or none.
    Failure run() {
        loop_.after(longest, [this] { finish({Fault::noAnswer, "the camera takes too long"}); });
        camera_.ask([this](const StreamInfo& info, const Failure& failure) {
            if (!failure.none())
                return finish(failure);
            info_ = info;
            if (info.video)
                size_ =
                    streams::sizeInFormat(streams::encodingOf(info.video->encodingName), info.video->fmtp);
            join();
        });
        if (!over_)
            loop_.run();
        return failure_;
    }

    std::string description() const {
        std::string text = info_.video ? info_.video->encodingName : "Motion JPEG";
        if (size_)
            text += ", " + std::to_string(size_->width) + "x" + std::to_string(size_->height);
        const CameraReport report = camera_.report();
        const double seconds = static_cast<double>(ended_ - first_) / 1e6;
        if (seconds > 0 && report.pictures > 1) {
            text += ", " + oneDigit(static_cast<double>(report.pictures - 1) / seconds) + " pictures/s";
            text += ", " + oneDigit(static_cast<double>(report.bytes) * 8 / seconds / 1e6) + " Mbit/s";
        }
        text += info_.sound ? ", sound " + info_.sound->encodingName : ", no sound";
        if (report.keyInterval > 0 &&
            streams::encodingOf(report.info.video->encodingName) != streams::Encoding::jpeg)
            text += ", a key picture every " + oneDigit(static_cast<double>(report.keyInterval) / 1e6) + " s";
        return text + (report.info.transport.empty() ? "" : ",") + report.info.way();
    }

    bool isPictures() const { return info_.isPictures(); }

private:
    void join() {
        const Camera::ViewerId viewer =
            camera_.join({.packet = [this](Track track, const streams::Packet& packet,
                                           bool) { takePacket(track, *packet); },
                          .picture =
                              [this](const streams::Packet& jpeg) {
                                  arrived();
                                  if (const auto size = streams::wholeJpeg(*jpeg))
                                      size_ = streams::PictureSize{size->width, size->height};
                              },
                          .flush = [] {},
                          .ended = [this](const Failure& failure) { finish(failure); }});
        if (viewer == 0)
            return finish({Fault::ended, "the camera ended the stream"});
        look();
    }

    void takePacket(Track track, const std::string& bytes) {
        if (track != Track::video)
            return;
        arrived();
        const auto packet = streams::readRtp(bytes);
        if (packet && !size_)
            size_ = streams::sizeInPayload(streams::encodingOf(info_.video->encodingName), packet->payload);
    }

    void arrived() {
        if (first_ == 0)
            first_ = gettimeusec();
    }

    // Long enough for a rate, and for two key pictures if they come in time.
    void look() {
        loop_.after(std::chrono::milliseconds(100), [this] {
            const std::int64_t passed = first_ == 0 ? 0 : gettimeusec() - first_;
            const bool keys = info_.isPictures() || camera_.report().keyInterval > 0 ||
                              passed > std::chrono::microseconds(longestForKeys).count();
            if (passed > std::chrono::microseconds(shortest).count() && keys)
                return finish({});
            look();
        });
    }

    void finish(const Failure& failure) {
        if (over_)
            return;
        over_ = true;
        ended_ = gettimeusec();
        failure_ = failure;
        loop_.end();
    }

    EventLoop& loop_;
    Transfers transfers_;
    Camera camera_;
    StreamInfo info_;
    Failure failure_;
    std::optional<streams::PictureSize> size_;
    std::int64_t first_ = 0; // microseconds: the first packet or picture
    std::int64_t ended_ = 0;
    bool over_ = false;
};

} // namespace

int probeCamera(bool connect) {
    std::string text;
    std::string user;
    std::string password;
    std::getline(std::cin, text);
    std::getline(std::cin, user);
    std::getline(std::cin, password);
    CameraUrl url;
    if (const std::string mistake = readCameraUrl(text, url); !mistake.empty()) {
        print("Failure", mistake);
        return 1;
    }
    if (!user.empty()) {
        url.user = user;
        url.password = password;
    }
    if (connect) {
        EventLoop loop;
        Probe probe(loop, url);
        if (const Failure failure = probe.run(); !failure.none()) {
            print("Failure", failure.text);
            return 1;
        }
        print("Video", probe.description());
        if (url.isHttp()) // the URL may not say it
            print("VideoSourceType", probe.isPictures() ? "mjpeg" : "rtsp-tcp");
    }
    print("URL", url.text());
    // As they are: decoderctl refuses what the parameter file can't have.
    std::printf("UserName=%s\nPassword=%s\n", url.user.c_str(), url.password.c_str());
    return 0;
}

} // namespace gateway
