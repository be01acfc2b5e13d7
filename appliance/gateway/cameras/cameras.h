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

    // Takes a new configuration. Cameras that are as before go on undisturbed, all others begin anew or end. Where only
    // the choice between main and sub stream changes, present viewers keep their stream, and later ones get the other.
    void configure(const std::vector<CameraSettings>& settings, int highestNumber);

    Camera* find(int number); // null: there is none
    // The same for one who keeps it over several calls.
    std::shared_ptr<Camera> share(int number);
    // Forgets cameras that are shown with their earlier choice when their last viewer has left.
    void tidy();
    // The highest number that was ever given: what an encoder reports as its number of inputs.
    int highestNumber() const { return highestNumber_; }
    const std::map<int, std::shared_ptr<Camera>>& all() const { return cameras_; }

private:
    void retire(const std::shared_ptr<Camera>& camera, const std::vector<CameraSettings>& settings);
    void add(const CameraSettings& settings);

    EventLoop& loop_;
    Transfers& transfers_;
    const SessionTimes times_;
    const std::function<void(const Camera&)> changed_;
    std::map<int, std::shared_ptr<Camera>> cameras_;
    std::vector<std::shared_ptr<Camera>> retiring_; // shown with their earlier choice of the stream
    int highestNumber_ = 0;
};

} // namespace gateway
