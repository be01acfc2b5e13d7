// The camera that one connection asks for and watches. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"

#include <functional>
#include <memory>
#include <string>

namespace gateway {

class WatchedCamera {
public:
    // Cameras must outlive it. `answered` is called after each answer of ask().
    WatchedCamera(Cameras& cameras, std::function<void()> answered);
    ~WatchedCamera();
    WatchedCamera(const WatchedCamera&) = delete;
    WatchedCamera& operator=(const WatchedCamera&) = delete;

    // Takes the present camera with this number, and keeps it over the following calls, even while the configuration
    // replaces it. Not while one is watched. False when there is none.
    bool choose(int number);
    int number() const { return camera_ == nullptr ? 0 : camera_->settings().number; } // 0: none is chosen
    CameraReport report() const { return camera_->report(); }
    const std::string& name() const { return camera_->settings().name; }

    // Whether the configuration has replaced the chosen camera since: by another choice of the stream.
    bool isReplaced() const { return camera_ != nullptr && camera_ != cameras_.share(number()); }

    // Asks a camera that exists for its stream, the chosen one if it has this number. The answer is not passed on after
    // stop() and the destructor.
    void ask(int number, Camera::Answer answer);
    bool isAsking() const { return asking_; }

    // Joins the open stream of the camera that was asked. Nothing happens when it has just failed.
    void join(int number, Viewer viewer);
    void leave(); // none is chosen then
    bool isWatching() const { return viewer_ != 0; }

    void stop(); // leaves; nothing is called from now on

private:
    Cameras& cameras_;
    const std::function<void()> answered_;
    // Answers may come when this object is gone; they look here first.
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool asking_ = false;
    std::shared_ptr<Camera> camera_; // that is chosen; null: none
    Camera::ViewerId viewer_ = 0;
};

} // namespace gateway
