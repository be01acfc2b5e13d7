// The real Broker: a link whose socket is a source of the main loop. Nothing polls; the main loop wakes up when the broker
// sends something, and once in 20 seconds for the sign of life.
//
// Only the start of an attempt runs in a thread of its own: it looks up the broker's name, which may take seconds.
#pragma once

#include "appliance/mqtt/back_off.h"
#include "appliance/panel/fleet/broker.h"
#include "appliance/panel/web/source_handle.h"
#include "appliance/panel/web/worker.h"

#include <cstdint>
#include <memory>

namespace panel {

class BrokerConnection : public Broker {
public:
    BrokerConnection() = default;
    ~BrokerConnection() override;
    BrokerConnection(const BrokerConnection&) = delete;
    BrokerConnection& operator=(const BrokerConnection&) = delete;

    void begin(const mqtt::LinkSettings& settings, BrokerNews news) override;
    void end() override;
    void subscribe(const std::string& filter, mqtt::Link::Old old) override;
    void publish(const std::string& topic, const std::string& payload, int expirySeconds) override;

private:
    struct SocketSource;

    void attempt();
    void attach(const std::shared_ptr<mqtt::Link>& link);
    void serve(short revents);
    void watchSocket();
    void afterSending();
    void handOver();
    void retry();

    mqtt::LinkSettings settings_;
    BrokerNews news_;
    mqtt::BackOff backOff_;
    std::shared_ptr<mqtt::Link> link_; // null: an attempt begins, or there is a pause
    bool told_ = false;                // that it is connected
    unsigned attempt_ = 0;             // a later one makes an earlier one void
    std::int64_t connectedAt_ = 0;     // gettimeusec()'s clock
    SourceHandle socket_;
    void* socketTag_ = nullptr; // of socket_
    SourceHandle tick_;
    SourceHandle pause_;
    std::unique_ptr<Worker> starter_;
};

} // namespace panel
