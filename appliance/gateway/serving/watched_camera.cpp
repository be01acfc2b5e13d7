#include "appliance/gateway/serving/watched_camera.h"

#include <utility>

namespace gateway {

WatchedCamera::WatchedCamera(Cameras& cameras, std::function<void()> answered)
    : cameras_(cameras), answered_(std::move(answered)) {}

WatchedCamera::~WatchedCamera() {
    stop();
}

bool WatchedCamera::choose(int number) {
    if (viewer_ == 0)
        camera_ = cameras_.share(number);
    return this->number() == number;
}

void WatchedCamera::ask(int number, Camera::Answer answer) {
    if (this->number() != number)
        choose(number);
    asking_ = true;
    camera_->ask(
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
    if (this->number() != number)
        return;
    viewer.ended = [this, ended = std::move(viewer.ended)](const Failure& failure) {
        viewer_ = 0;
        ended(failure);
    };
    viewer_ = camera_->join(std::move(viewer));
}

void WatchedCamera::leave() {
    const std::shared_ptr<Camera> camera = std::exchange(camera_, nullptr);
    if (const Camera::ViewerId viewer = std::exchange(viewer_, 0); viewer != 0)
        camera->leave(viewer);
}

void WatchedCamera::stop() {
    *alive_ = false;
    leave();
}

} // namespace gateway
