// A whole site on loopback: six encoders of different kinds, two decoders on one wall, and every service of the first
// decoder. Two encoders are behind a network that can be disturbed.
//
//   source  encoder      kind                         between
//   0       127.0.1.1    Motion JPEG                  the disturbed network, 127.0.2.1
//   1       127.0.1.2    MPEG-2 over HTTP
//   2       127.0.1.3    SDP guide, MPEG-2 multicast
//   3       127.0.1.4    RTSP over UDP, H.264         the disturbed network, 127.0.2.4
//   4       127.0.1.5    RTSP over its connection, MPEG-4
//   5       127.0.1.6    RTSP, as a camera            camera-gateway (first decoder only)
//
// The first decoder shows one source after the other, the second one what is selected. The mark in the pictures is the
// source's number. Only in an isolated process; one thread, besides Watch.
#pragma once

#include "tests/appliance/appliance.h"
#include "tests/mqtt/broker.h"
#include "tests/support/disturbed_host.h"
#include "tests/support/x_server.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace faults {

// A service that the test starts again when it has ended, as its unit would.
class Service {
public:
    Service(std::string name, std::function<std::vector<std::string>()> command,
            std::map<std::string, std::string> environment, std::string output, std::string ready);

    const std::string& name() const { return name_; }
    bool running() { return process_ && process_->running(); }
    pid_t pid() const { return process_ ? process_->pid() : -1; }
    void start();
    // Starts it if it does not run and a second has passed since its end was seen.
    void keepRunning();
    bool isReady(); // it runs and has printed that it listens
    int port();     // that it printed; 0: none yet
    void signal(int number) const;
    int starts() const { return starts_; }

private:
    std::string name_;
    std::function<std::vector<std::string>()> command_;
    std::map<std::string, std::string> environment_;
    std::string output_;
    std::string ready_;
    std::unique_ptr<appliance::Process> process_;
    std::optional<std::chrono::steady_clock::time_point> endSeen_;
    int port_ = 0;
    int starts_ = 0;
};

class Site {
public:
    static constexpr int cameraSource = 5;   // comes through camera-gateway
    static constexpr int detectTimeout = 10; // Decoder.AutoDetectTimeout, seconds

    // Throws std::runtime_error when something does not start.
    Site();
    ~Site();
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    // Starts supervisors and services, and waits until both decoders show moving pictures. Returns "", or what fails.
    std::string start();

    appliance::Appliance& decoder(std::size_t number) { return *decoders_.at(number); }
    std::size_t decoders() const { return decoders_.size(); }
    appliance::Encoder& encoder(std::size_t number) { return *encoders_.at(number); }
    std::size_t encoders() const { return encoders_.size(); }
    std::vector<std::unique_ptr<Service>>& services() { return services_; }
    Service* service(const std::string& name);
    std::vector<std::unique_ptr<scripted::DisturbedHost>>& networks() { return networks_; }
    mqtt_test::Broker* broker() { return broker_ ? &*broker_ : nullptr; }
    const std::string& missing() const {
        return missing_;
    } // what is not installed here, and so not part of it

    // The source whose pictures move on this decoder's screen; -1: none does within the time.
    int movingSource(std::size_t number, appliance::Seconds limit);
    // Both halves of the monitor show moving pictures; true where there is no monitor.
    bool wallMoves(appliance::Seconds limit);

    int sourcesOf(std::size_t decoder) const { return decoder == 0 ? cameraSource + 1 : cameraSource; }
    const std::string& parameters(std::size_t number) const { return parameters_.at(number); }

private:
    void addEncoders();
    void addServices();
    void addService(const std::string& name, const std::vector<std::string>& arguments, bool listens);

    std::vector<std::unique_ptr<appliance::Appliance>> decoders_;
    std::vector<std::unique_ptr<appliance::Encoder>> encoders_;
    std::vector<std::unique_ptr<scripted::DisturbedHost>> networks_;
    std::optional<mqtt_test::Broker> broker_;
    std::unique_ptr<x_server::XServer> display_;
    std::vector<std::unique_ptr<Service>> services_;
    std::vector<std::string> parameters_; // the text of each parameter file
    std::string missing_;
};

// The token of the panel with every right.
inline constexpr const char* panelToken = "admin";

} // namespace faults
