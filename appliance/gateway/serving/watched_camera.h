// The camera that one connection asks for and watches. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/cameras.h"

#include <functional>
#include <memory>

namespace gateway {

class WatchedCamera {
public:
    // Cameras must outlive it. `answered` is called after each answer of ask().
    WatchedCamera(Cameras& cameras, std::function<void()> answered);
    ~WatchedCamera();
    WatchedCamera(const WatchedCamera&) = delete;
    WatchedCamera& operator=(const WatchedCamera&) = delete;

    // Asks a camera that exists for its stream. The answer is not passed on after stop() and the destructor.
    void ask(int number, Camera::Answer answer);
    bool isAsking() const { return asking_; }

    // Joins the camera's open stream, for one camera at a time. Nothing happens when it was removed or has just failed.
    void join(int number, Viewer viewer);
    void leave();
    bool isWatching() const { return viewer_ != 0; }

    void stop(); // leaves; nothing is called from now on

private:
    Cameras& cameras_;
    const std::function<void()> answered_;
    // Answers may come when this object is gone; they look here first.
    const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    bool asking_ = false;
    int number_ = 0; // the camera that is watched; 0: none
    Camera::ViewerId viewer_ = 0;
};

} // namespace gateway
