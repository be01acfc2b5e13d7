// A broker that speaks only MQTT 3.1.1: a relay to a real one that refuses everything else.
#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace mqtt_test {

class OldBroker {
public:
    // How it refuses MQTT 5.
    enum class Refusal { OfVersion3, OfVersion5 };

    // In front of the broker at this port of 127.0.0.1. Listens when the constructor returns.
    OldBroker(int brokerPort, Refusal refusal);
    ~OldBroker(); // ends all connections
    OldBroker(const OldBroker&) = delete;
    OldBroker& operator=(const OldBroker&) = delete;

    std::string url() const { return "mqtt://127.0.0.1:" + std::to_string(port_); }
    int refused() const { return refused_; }   // connections with MQTT 5
    int accepted() const { return accepted_; } // with MQTT 3.1.1

private:
    void accept();
    void serve(int client);
    void relay(int client, const std::string& begin);

    int brokerPort_;
    Refusal refusal_;
    int socket_;
    int port_ = 0;
    std::atomic<bool> ending_ = false;
    std::atomic<int> refused_ = 0;
    std::atomic<int> accepted_ = 0;
    std::vector<std::thread> clients_; // of the thread that accepts
    std::thread thread_;
};

} // namespace mqtt_test
