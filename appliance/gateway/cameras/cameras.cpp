#include "appliance/gateway/cameras/cameras.h"

#include <algorithm>
#include <utility>

namespace gateway {

Cameras::Cameras(EventLoop& loop, Transfers& transfers, SessionTimes times,
                 std::function<void(const Camera&)> changed)
    : loop_(loop), transfers_(transfers), times_(times), changed_(std::move(changed)) {}

void Cameras::configure(const std::vector<CameraSettings>& settings, int highestNumber) {
    highestNumber_ = highestNumber;
    std::vector<std::shared_ptr<Camera>> before = std::exchange(retiring_, {});
    for (auto entry = cameras_.begin(); entry != cameras_.end();) {
        const bool stays = std::ranges::any_of(settings, [&](const CameraSettings& one) {
            return one.sameCamera(entry->second->settings()) &&
                   one.useSub == entry->second->settings().useSub;
        });
        if (!stays)
            before.push_back(std::move(entry->second));
        entry = stays ? std::next(entry) : cameras_.erase(entry);
    }
    for (const std::shared_ptr<Camera>& camera : before)
        retire(camera, settings);
    for (const CameraSettings& one : settings)
        add(one);
}

// A camera that is no longer played as it is.
void Cameras::retire(const std::shared_ptr<Camera>& camera, const std::vector<CameraSettings>& settings) {
    const bool otherStream = std::ranges::any_of(
        settings, [&](const CameraSettings& one) { return one.sameCamera(camera->settings()); });
    if (otherStream && camera->isWatched())
        retiring_.push_back(camera);
    else
        camera->end();
}

void Cameras::add(const CameraSettings& settings) {
    std::shared_ptr<Camera>& camera = cameras_[settings.number];
    if (camera != nullptr)
        return camera->rename(settings.name);
    camera = std::make_shared<Camera>(loop_, transfers_, settings, times_, changed_);
    changed_(*camera);
}

void Cameras::tidy() {
    std::erase_if(retiring_, [](const std::shared_ptr<Camera>& camera) { return !camera->isWatched(); });
}

std::shared_ptr<Camera> Cameras::share(int number) {
    const auto found = cameras_.find(number);
    return found == cameras_.end() ? nullptr : found->second;
}

Camera* Cameras::find(int number) {
    const auto found = cameras_.find(number);
    return found == cameras_.end() ? nullptr : found->second.get();
}

} // namespace gateway
