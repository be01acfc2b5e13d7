#include "tests/faults/site.h"

#include "appliance/mark/frame_mark.h"
#include "tests/appliance/isolation.h"
#include "tests/peers/peer_program.h"

#include <csignal>
#include <set>
#include <stdexcept>
#include <sys/stat.h>

namespace faults {

using appliance::Appliance;
using appliance::eventually;
using appliance::Seconds;

namespace {

constexpr int wallWidth = 1440; // two tiles of 4:3 beside each other
constexpr int wallHeight = 540;
constexpr Seconds startLimit{90};

struct Kind {
    const char* name;
    std::vector<std::string> arguments;
    bool disturbed; // has a network of its own in front
};

const std::vector<Kind>& kinds() {
    static const std::vector<Kind> all{
        {"Yard", {"--kinds", "mjpeg"}, true},
        {"Gate", {"--kinds", "mpeg2"}, false},
        {"Hall", {"--kinds", "sdp", "--multicast", "239.255.1.3"}, false},
        {"Dock", {"--kinds", "rtsp-unicast", "--codec", "h264"}, true},
        {"Roof", {"--kinds", "rtsp-tcp"}, false},
        {"Door", {"--kinds", "rtsp-tcp,rtsp-unicast", "--codec", "h264"}, false},
    };
    return all;
}

std::string hostOf(std::size_t encoder) {
    return "127.0.1." + std::to_string(encoder + 1);
}

std::string networkOf(std::size_t encoder) {
    return "127.0.2." + std::to_string(encoder + 1);
}

void setUp(Appliance& decoder) {
    decoder.set("Decoder.AutoDetectTimeout", std::to_string(Site::detectTimeout));
    decoder.set("Sound.Enabled", "no");
}

// The SHA-256 of panelToken.
void writeTokens(const Appliance& decoder) {
    const std::string file = decoder.root() + "/etc/decoder/panel.tokens";
    appliance::writeFile(file,
                         "admin admin 0 8c6976e5b5410415bde908bd4dee15dfb167a9c873fc4bb8a81f6f2ab448a918\n");
    chmod(file.c_str(), S_IRUSR | S_IWUSR);
}

} // namespace

Site::Site() {
    if (!appliance::isolate())
        throw std::runtime_error("needs a network namespace of its own for hosts and multicast");
    for (int i = 0; i < 2; ++i) {
        decoders_.push_back(std::make_unique<Appliance>());
        setUp(*decoders_.back());
    }
    decoders_[1]->setManual();
    addEncoders();
    if (missing_ = peers::missing({"mosquitto"}); missing_.empty()) {
        broker_.emplace();
        decoders_[0]->set("Mqtt.Broker", broker_->url());
        decoders_[0]->set("Mqtt.Topic", "site/hall");
    }
    decoders_[0]->set("Warm.Sources", "all");
    decoders_[0]->set("Panel.LogInRate", "10000");
    addServices();
}

Site::~Site() {
    for (auto& service : services_)
        service->signal(SIGCONT);
    services_.clear();
}

void Site::addEncoders() {
    const auto add = [this](std::size_t decoder, std::size_t number) {
        const bool camera = static_cast<int>(number) == cameraSource;
        const std::string address = kinds()[number].disturbed ? networkOf(number) : hostOf(number);
        decoders_[decoder]->addSource(
            kinds()[number].name,
            {{camera ? "URL" : "Address", camera ? "rtsp://" + address + "/mpeg4/1/media.orv" : address},
             {"DisplayTime", "4"}});
    };
    for (std::size_t i = 0; i < kinds().size(); ++i) {
        std::vector<std::string> arguments{"--width", "352", "--height", "288", "--fps", "10"};
        arguments.insert(arguments.end(), kinds()[i].arguments.begin(), kinds()[i].arguments.end());
        encoders_.push_back(std::make_unique<appliance::Encoder>(
            kinds()[i].name, static_cast<int>(i), arguments,
            decoders_[0]->root() + "/var/log/encoder" + std::to_string(i) + ".log", hostOf(i)));
        if (kinds()[i].disturbed)
            networks_.push_back(std::make_unique<scripted::DisturbedHost>(networkOf(i), hostOf(i)));
        add(0, i);
        if (static_cast<int>(i) != cameraSource)
            add(1, i);
    }
}

void Site::addService(const std::string& name, const std::vector<std::string>& arguments, bool listens) {
    const std::string root = decoders_[0]->root();
    services_.push_back(std::make_unique<Service>(
        name,
        [name, arguments] {
            std::vector<std::string> command{Appliance::program(name)};
            command.insert(command.end(), arguments.begin(), arguments.end());
            return command;
        },
        std::map<std::string, std::string>{{"APPLIANCE_ROOT", root},
                                           {"LIBCOMMON_LOG", root + "/var/log/" + name + ".log"},
                                           {"DISPLAY", display_ ? display_->display() : ""},
                                           {"WAYLAND_DISPLAY", ""}},
        root + "/var/log/" + name + ".out", listens ? "port=" : ""));
}

void Site::addServices() {
    addService("camera-gateway", {"--port", "PORT"}, true);
    addService("decoder-panel", {"--port", "PORT"}, true);
    if (broker_)
        addService("decoder-mqtt", {}, false);
    if (const std::string reason = x_server::XServer::whyNot(); reason.empty()) {
        display_ = std::make_unique<x_server::XServer>(wallWidth, wallHeight);
        addService("decoder-monitor",
                   {"--fullscreen", "--wall", "2x1", decoders_[0]->root(), decoders_[1]->root()}, false);
    } else {
        missing_ += (missing_.empty() ? "" : "; ") + reason;
    }
}

std::string Site::start() {
    writeTokens(*decoders_[0]);
    for (const auto& decoder : decoders_) {
        parameters_.push_back(decoder->parameterText());
        appliance::writeFile(decoder->parameterFile(), parameters_.back());
        decoder->keepParameterFile();
    }
    // The gateway before its decoder, as the units do.
    services_[0]->start();
    if (!eventually([&] { return services_[0]->isReady(); }))
        throw std::runtime_error("camera-gateway does not start");
    for (const auto& decoder : decoders_)
        decoder->start({"-v", "-v"});
    for (std::size_t i = 1; i < services_.size(); ++i)
        services_[i]->start();
    for (std::size_t i = 0; i < decoders_.size(); ++i)
        if (movingSource(i, startLimit) < 0)
            return "decoder " + std::to_string(i) +
                   " shows no pictures: " + decoders_[i]->ctl({"status"}).output + decoders_[i]->log();
    return wallMoves(startLimit) ? "" : "the monitor shows no pictures";
}

Service* Site::service(const std::string& name) {
    for (auto& service : services_)
        if (service->name() == name)
            return service.get();
    return nullptr;
}

// Three different counters of one source, drawn since the call.
int Site::movingSource(std::size_t number, Seconds limit) {
    constexpr std::size_t wanted = 3;
    Appliance& decoder = *decoders_.at(number);
    const std::uint64_t before = decoder.screen().newestInfo().number;
    std::map<int, std::set<int>> counters;
    int found = -1;
    eventually(
        [&] {
            if (decoder.screen().newestInfo().number <= before)
                return false;
            if (const auto mark = decoder.mark(); mark &&
                                                  counters[mark->source].insert(mark->counter).second &&
                                                  counters[mark->source].size() >= wanted)
                found = mark->source;
            return found >= 0;
        },
        limit);
    return found;
}

bool Site::wallMoves(Seconds limit) {
    if (!display_)
        return true;
    std::map<int, std::set<std::pair<int, int>>> seen;
    return eventually(
        [&] {
            for (int tile = 0; tile < 2; ++tile) {
                const x_server::Image image =
                    display_->part(tile * wallWidth / 2, 0, wallWidth / 2, wallHeight);
                if (const auto mark =
                        readFrameMark(reinterpret_cast<const std::uint8_t*>(image.pixels.data()), image.width,
                                      image.height, 4 * image.width))
                    seen[tile].insert({mark->source, mark->counter});
            }
            return seen[0].size() >= 2 && seen[1].size() >= 2;
        },
        limit);
}

} // namespace faults
