#include "appliance/gateway/service/service.h"

#include "appliance/serving/service_manager.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <array>
#include <utility>
#include <vector>

namespace gateway {
namespace {

constexpr const char* host = "127.0.0.1";
// How often status values of streams are written, at most.
constexpr std::chrono::milliseconds statusTime(3000);
// What belongs to one camera only, and not to the next one with the same index.
constexpr std::array ownKeys{"Reason", "BitRate",     "FrameRate", "Resolution",
                             "Codec",  "KeyInterval", "Transport", "Encoded"};

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
    publishStreams();
    return "";
}

Service::~Service() {
    loop_.cancel(statusTimer_);
}

void Service::configure(const SourcePlan& plan) {
    followPort(plan.port == 0 ? usualPort : plan.port);
    std::vector<CameraSettings> settings;
    std::map<int, int> indices;
    for (const PlannedSource& source : plan.sources) {
        settings.push_back(source.camera);
        indices[source.camera.number] = source.index;
    }
    forgetOthers(indices);
    indices_ = std::move(indices);
    cameras_.configure(settings, plan.highestNumber);
    for (const auto& [number, camera] : cameras_.all())
        publish(*camera);
    // From now on the sources are complete in the file: the supervisor may start.
    if (!std::exchange(ready_, true))
        tellServiceManager("READY=1");
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
    const int number = camera.settings().number;
    const auto index = indices_.find(number);
    // One that is shown with its earlier choice of the stream is silent.
    if (index == indices_.end() || keeper_ == nullptr || cameras_.find(number) != &camera)
        return;
    keeper_->setStatus(index->second, "Reason", camera.report().failure.text);
    if (const CameraUrl& url = camera.settings().played(); url.isHttp() && camera.report().open)
        keeper_->learn(url.text(), camera.report().info.isPictures());
    if (!camera.report().open)
        publishStream(camera, index->second);
}

void Service::publishStreams() {
    cameras_.tidy();
    for (const auto& [number, camera] : cameras_.all()) {
        const auto index = indices_.find(number);
        if (index != indices_.end() && camera->report().open)
            publishStream(*camera, index->second);
    }
    statusTimer_ = loop_.after(statusTime, [this] { publishStreams(); });
}

void Service::publishStream(const Camera& camera, int index) {
    const StreamStatus::Values values =
        streams_[camera.settings().number].update(camera.report(), gettimeusec());
    for (const auto& [key, value] : values)
        keeper_->setStatus(index, key, value);
}

// Clears the status values of sources that are about to lose their camera or to get another one.
void Service::forgetOthers(const std::map<int, int>& indices) {
    for (const auto& [number, index] : indices_) {
        const auto now = indices.find(number);
        if (now != indices.end() && now->second == index)
            continue;
        for (const char* key : ownKeys)
            keeper_->setStatus(index, key, "");
        if (now == indices.end())
            streams_.erase(number);
    }
}

} // namespace gateway
