#include "appliance/gateway/cameras/cameras.h"

#include <algorithm>
#include <utility>

namespace gateway {

Cameras::Cameras(EventLoop& loop, Transfers& transfers, SessionTimes times,
                 std::function<void(const Camera&)> changed)
    : loop_(loop), transfers_(transfers), times_(times), changed_(std::move(changed)) {}

void Cameras::configure(const std::vector<CameraSettings>& settings, int highestNumber) {
    highestNumber_ = highestNumber;
    // Ended only when they are no longer in the map: their viewers look into it.
    std::vector<std::unique_ptr<Camera>> ended;
    for (auto entry = cameras_.begin(); entry != cameras_.end();) {
        const bool stays = std::ranges::any_of(
            settings, [&](const CameraSettings& one) { return one.sameCamera(entry->second->settings()); });
        if (!stays)
            ended.push_back(std::move(entry->second));
        entry = stays ? std::next(entry) : cameras_.erase(entry);
    }
    ended.clear();
    for (const CameraSettings& one : settings) {
        std::unique_ptr<Camera>& camera = cameras_[one.number];
        if (camera == nullptr) {
            camera = std::make_unique<Camera>(loop_, transfers_, one, times_, changed_);
            changed_(*camera);
        } else {
            camera->rename(one.name);
        }
    }
}

Camera* Cameras::find(int number) {
    const auto found = cameras_.find(number);
    return found == cameras_.end() ? nullptr : found->second.get();
}

} // namespace gateway
