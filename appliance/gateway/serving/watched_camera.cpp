#include "appliance/gateway/serving/watched_camera.h"

#include <utility>

namespace gateway {

WatchedCamera::WatchedCamera(Cameras& cameras, std::function<void()> answered)
    : cameras_(cameras), answered_(std::move(answered)) {}

WatchedCamera::~WatchedCamera() {
    stop();
}

void WatchedCamera::ask(int number, Camera::Answer answer) {
    asking_ = true;
    cameras_.find(number)->ask(
        [this, alive = alive_, answer = std::move(answer)](const StreamInfo& info, const Failure& failure) {
            if (!*alive)
                return;
            asking_ = false;
            answer(info, failure);
            if (*alive)
                answered_();
        });
}

void WatchedCamera::join(int number, Viewer viewer) {
    Camera* camera = cameras_.find(number);
    if (camera == nullptr)
        return;
    viewer.ended = [this, ended = std::move(viewer.ended)](const Failure& failure) {
        viewer_ = 0;
        ended(failure);
    };
    number_ = number;
    viewer_ = camera->join(std::move(viewer));
}

void WatchedCamera::leave() {
    const Camera::ViewerId viewer = std::exchange(viewer_, 0);
    if (Camera* camera = cameras_.find(std::exchange(number_, 0)); camera != nullptr && viewer != 0)
        camera->leave(viewer);
}

void WatchedCamera::stop() {
    *alive_ = false;
    leave();
}

} // namespace gateway
