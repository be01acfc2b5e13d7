// The gateway as a whole: sources, cameras, port, status.
#pragma once

#include "appliance/gateway/cameras/cameras.h"
#include "appliance/gateway/loop/event_loop.h"
#include "appliance/gateway/service/keeper.h"
#include "appliance/gateway/service/stream_status.h"
#include "appliance/gateway/serving/port.h"
#include "appliance/gateway/warm/warm_sources.h"

#include <cstdint>
#include <map>
#include <string>

namespace gateway {

inline constexpr std::uint16_t usualPort = 8550; // without "Gateway.Port"

class Service {
public:
    explicit Service(EventLoop& loop);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    // Listens and reads the sources. `fixed`: the port does not follow the parameter "Gateway.Port". Returns "" or the
    // reason of the failure.
    std::string start(std::uint16_t port, bool fixed);
    std::uint16_t port() const { return port_.number(); }

private:
    void configure(const SourcePlan& plan);
    void publish(const Camera& camera);
    void publishStreams();
    void publishStream(const Camera& camera, int index);
    void forgetOthers(const std::map<int, int>& indices);
    void followPort(int port);

    EventLoop& loop_;
    Transfers transfers_;
    Cameras cameras_;
    Port port_;
    WarmSources warm_;
    bool fixed_ = false;
    bool ready_ = false;                  // the first plan was taken, and the service manager was told
    int wantedPort_ = 0;                  // that was tried last
    std::unique_ptr<Keeper> keeper_;      // destroyed first: it uses the loop
    std::map<int, int> indices_;          // of the sources, by the camera's number
    std::map<int, StreamStatus> streams_; // by the camera's number
    EventLoop::Timer statusTimer_ = 0;
};

} // namespace gateway
