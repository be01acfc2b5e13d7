#include "appliance/gateway/service/service.h"

#include <vector>

namespace gateway {

Service::Service(EventLoop& loop)
    : loop_(loop), transfers_(loop),
      cameras_(loop, transfers_, {}, [this](const Camera& camera) { publish(camera); }),
      port_(loop, cameras_) {}

std::string Service::start(std::uint16_t port) {
    if (std::string error = port_.open("127.0.0.1", port); !error.empty())
        return error;
    keeper_ =
        std::make_unique<Keeper>(loop_, port_.number(), [this](const SourcePlan& plan) { configure(plan); });
    keeper_->start();
    return "";
}

void Service::configure(const SourcePlan& plan) {
    std::vector<CameraSettings> settings;
    indices_.clear();
    for (const PlannedSource& source : plan.sources) {
        settings.push_back(source.camera);
        indices_[source.camera.number] = source.index;
    }
    cameras_.configure(settings, plan.highestNumber);
    for (const auto& [number, camera] : cameras_.all())
        publish(*camera);
}

void Service::publish(const Camera& camera) {
    const auto index = indices_.find(camera.settings().number);
    if (index != indices_.end() && keeper_ != nullptr)
        keeper_->setStatus(index->second, "Reason", camera.report().failure.text);
}

} // namespace gateway
