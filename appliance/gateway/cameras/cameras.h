// All configured cameras, by their numbers. For the loop's thread.
#pragma once

#include "appliance/gateway/cameras/camera.h"

#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace gateway {

class Cameras {
public:
    // Loop and transfers must outlive it.
    Cameras(EventLoop& loop, Transfers& transfers, SessionTimes times,
            std::function<void(const Camera&)> changed);

    // Takes a new configuration. Cameras that are as before go on undisturbed, all others begin anew or end.
    void configure(const std::vector<CameraSettings>& settings, int highestNumber);

    Camera* find(int number); // null: there is none
    // The highest number that was ever given: what an encoder reports as its number of inputs.
    int highestNumber() const { return highestNumber_; }
    const std::map<int, std::unique_ptr<Camera>>& all() const { return cameras_; }

private:
    EventLoop& loop_;
    Transfers& transfers_;
    const SessionTimes times_;
    const std::function<void(const Camera&)> changed_;
    std::map<int, std::unique_ptr<Camera>> cameras_;
    int highestNumber_ = 0;
};

} // namespace gateway
