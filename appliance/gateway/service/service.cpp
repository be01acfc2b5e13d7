#include "appliance/gateway/service/service.h"

#include <libcommon/log.h>

#include <vector>

namespace gateway {
namespace {

constexpr const char* host = "127.0.0.1";

} // namespace

Service::Service(EventLoop& loop)
    : loop_(loop), transfers_(loop),
      cameras_(loop, transfers_, {}, [this](const Camera& camera) { publish(camera); }),
      port_(loop, cameras_), warm_(loop, cameras_) {}

std::string Service::start(std::uint16_t port, bool fixed) {
    fixed_ = fixed;
    wantedPort_ = port;
    if (std::string error = port_.open(host, port); !error.empty())
        return error;
    keeper_ =
        std::make_unique<Keeper>(loop_, port_.number(), [this](const SourcePlan& plan) { configure(plan); });
    keeper_->start();
    warm_.start();
    return "";
}

void Service::configure(const SourcePlan& plan) {
    followPort(plan.port == 0 ? usualPort : plan.port);
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

void Service::followPort(int port) {
    if (fixed_ || port == wantedPort_ || port < 1 || port > 65535)
        return;
    wantedPort_ = port;
    if (const std::string error = port_.open(host, static_cast<std::uint16_t>(port)); !error.empty())
        return logmsg(3, "Gateway.Port: %s", error.c_str());
    keeper_->setPort(port);
}

void Service::publish(const Camera& camera) {
    const auto index = indices_.find(camera.settings().number);
    if (index != indices_.end() && keeper_ != nullptr)
        keeper_->setStatus(index->second, "Reason", camera.report().failure.text);
}

} // namespace gateway
