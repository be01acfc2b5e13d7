// One configured camera: connected while somebody watches it and shortly after, and connected again when it fails.
//
// There is one session with the camera however many players watch it. A failed one is repeated after 1, 2, 4, ... 30
// seconds as long as the camera is wanted. Players stay through a first repetition; when it fails too, they are told.
// For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/camera_url.h"
#include "appliance/gateway/cameras/session.h"
#include "appliance/gateway/cameras/stream_info.h"
#include "appliance/streams/rtp/video_relay.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace gateway {

// automatic: UDP, TCP where nothing comes over UDP, multicast where the camera offers neither
enum class Transport { automatic, udp, tcp, multicast };

struct CameraSettings {
    int number = 0;                 // from 1; a camera keeps it as long as it exists
    std::string name;               // for people
    std::string mistake;            // why the URL can't be used; "": it can
    CameraUrl url;                  // of the main stream
    std::optional<CameraUrl> sub{}; // of a smaller stream of the same camera
    bool useSub = false;            // play that one; only with `sub`
    Transport transport = Transport::automatic;

    const CameraUrl& played() const { return useSub && sub ? *sub : url; }
    // All but the name and the choice of the stream.
    bool sameCamera(const CameraSettings& other) const;
};

// One who watches. All are called on the loop's thread; none may destroy the camera.
struct Viewer {
    // `start`: the first packet that this viewer can begin with; all of a track that has no key pictures are.
    std::function<void(Track track, const streams::Packet& packet, bool start)> packet;
    std::function<void(const streams::Packet& jpeg)> picture;
    std::function<void()> flush;                       // a good moment to send what has been handed over
    std::function<void(const Failure& failure)> ended; // called at most once; the viewer has left
};

struct CameraReport {
    Failure failure{}; // none while the stream runs, and before the first attempt
    bool open = false;
    StreamInfo info{}; // while open
    std::uint64_t bytes = 0;
    std::uint64_t pictures = 0;
    std::int64_t keyInterval = 0;               // microseconds; 0: not known
    std::optional<streams::PictureSize> size{}; // nothing: not known
    std::size_t viewers = 0;
};

class Camera {
public:
    // Loop and transfers must outlive it. `changed` is called when the report has another failure or opens or closes.
    Camera(EventLoop& loop, Transfers& transfers, CameraSettings settings, SessionTimes times,
           std::function<void(const Camera&)> changed);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    const CameraSettings& settings() const { return settings_; }
    void rename(const std::string& name) { settings_.name = name; }
    CameraReport report() const;
    bool isWatched() const { return !viewers_.empty(); }

    // Wants the camera's stream; `answer` is called once, perhaps at once: with a failure, or with none when the
    // stream is open, and `info` is then valid during the call.
    using Answer = std::function<void(const StreamInfo& info, const Failure& failure)>;
    void ask(Answer answer);

    // Joins an open stream. What is kept since the last key picture comes at once, during the call. Returns 0 when the
    // stream is not open.
    using ViewerId = std::uint64_t;
    ViewerId join(Viewer viewer);
    void leave(ViewerId viewer);

    // The camera is no longer configured: tells everyone so, and answers nothing else from now on.
    void end();

private:
    void open();
    void closeSession();
    void onOpened(const StreamInfo& info);
    void onPacket(Track track, std::string_view packet);
    void onPicture(std::string_view jpeg);
    void onPause();
    void onEnded(const Failure& failure);
    void makeRelays(const StreamInfo& info);
    std::optional<Delivery> otherDelivery(const Failure& failure) const;
    bool fallsBack(const Failure& failure);
    void tryAgain();
    void pass(Track track, const streams::Packet& packet, bool start);
    template<typename Call>
    void eachViewer(Call call);
    void answerAll(const Failure& failure);
    void endViewers(const Failure& failure);
    void stopWhenUnwanted();
    bool isWanted() const { return !viewers_.empty() || !answers_.empty() || lingerTimer_ != 0; }

    EventLoop& loop_;
    Transfers& transfers_;
    CameraSettings settings_;
    const SessionTimes times_;
    const std::function<void(const Camera&)> changed_;

    std::unique_ptr<CameraSession> session_; // null: none
    bool open_ = false;
    bool over_ = false;
    Delivery delivery_; // asked for in the next session
    StreamInfo info_;
    Failure failure_;
    int failures_ = 0;          // in a row
    std::int64_t brokenAt_ = 0; // when the last open session ended, on gettimeusec()'s clock
    EventLoop::Timer againTimer_ = 0;
    EventLoop::Timer lingerTimer_ = 0;

    std::unique_ptr<streams::VideoRelay> video_;
    std::unique_ptr<streams::VideoRelay> sound_;
    streams::Packet picture_; // the newest one; null: none
    std::vector<Answer> answers_;
    std::map<ViewerId, std::shared_ptr<Viewer>> viewers_;
    ViewerId nextViewer_ = 1;
    std::uint64_t bytes_ = 0;
    std::uint64_t pictures_ = 0; // whole JPEG pictures
};

} // namespace gateway
