// One session with a camera that sends Motion JPEG over HTTP or HTTPS. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/camera_url.h"
#include "appliance/gateway/cameras/session.h"
#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/gateway/cameras/transfers.h"
#include "appliance/input/protocol/web_source.h"
#include "appliance/streams/multipart.h"

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace gateway {

class MjpegSession : public CameraSession {
public:
    // Gets the form of what the server sends instead, for camera-input. It is called instead of `ended`, in the same way.
    using Other = std::function<void(input::WebForm form)>;

    // Loop and transfers must outlive it.
    MjpegSession(EventLoop& loop, Transfers& transfers, CameraUrl url, SessionTimes times,
                 SessionEvents events, Other other);
    ~MjpegSession() override;

    void open() override;

private:
    static std::size_t onHeader(char* line, std::size_t size, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
    static int onProgress(void* self, curl_off_t total, curl_off_t now, curl_off_t upTotal, curl_off_t upNow);

    bool begin(std::string_view first);
    Failure otherType() const;
    void takePicture(std::string_view bytes);
    void watchSilence();
    Failure silence(std::int64_t now) const;
    Failure outcome(CURLcode result) const;
    long status() const;
    void end(const Failure& failure);
    void endSoon(const Failure& failure);
    void handOverSoon(input::WebForm form);

    EventLoop& loop_;
    Transfers& transfers_;
    const CameraUrl url_;
    const SessionTimes times_;
    const SessionEvents events_;
    const Other other_;
    CURL* curl_;
    std::array<char, CURL_ERROR_SIZE> error_{};
    std::size_t headerBytes_ = 0;
    std::size_t bodyBytes_ = 0;
    std::string type_;          // the Content-Type
    bool namesNoParts_ = false; // the type does not say that there are parts; the body may still have them
    std::unique_ptr<streams::MultipartReader> reader_; // null before the body begins
    std::int64_t started_ = 0;                         // microseconds
    std::int64_t lastPicture_ = 0;                     // 0: none yet
    bool opened_ = false;
    bool ended_ = false;
    EventLoop::Timer silenceTimer_ = 0;
    EventLoop::Timer endTimer_ = 0;
};

} // namespace gateway
