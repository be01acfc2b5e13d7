#include "bench/screen/decoder_side.h"

#include "bench/log_time.h"
#include "bench/samples.h"

#include <libcommon/events.h>

#include <csignal>
#include <utility>

namespace bench {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Process;

DecoderSide::DecoderSide(Appliance& decoder, const x_server::XServer& server, bool warm, int keepMs)
    : decoder_(decoder), server_(server), warm_(warm), keepMs_(keepMs) {}

void DecoderSide::show(int source) {
    if (monitor_ == nullptr)
        begin();
    Event event{};
    event.id = EID_SELECT;
    event.value1 = source;
    sendEvent(&event);
}

void DecoderSide::end() {
    decoder_.ctl({"disconnect"});
    if (monitor_ != nullptr) {
        monitor_->signal(SIGTERM);
        monitor_->waitForEnd();
    }
    monitor_.reset();
    keeper_.reset();
}

void DecoderSide::begin() {
    if (warm_) {
        keeper_ = std::make_unique<CameraGateway>(decoder_);
        appliance::pause(std::chrono::milliseconds(keepMs_));
    }
    monitor_ = std::make_unique<Process>(
        std::vector<std::string>{Appliance::program("decoder-monitor"), "--fullscreen"},
        std::map<std::string, std::string>{
            {"DISPLAY", server_.display()}, {"WAYLAND_DISPLAY", ""}, {"APPLIANCE_ROOT", decoder_.root()}},
        decoder_.root() + "/var/log/monitor.log");
    decoder_.ctl({"connect"});
}

void tellParts(const Appliance& decoder, const std::string& side, double askedAt, double answer) {
    const double logBegan = beginOfLog(decoder);
    double before = 0;
    std::vector<std::pair<std::string, double>> parts;
    for (const auto& [part, transition] : {std::pair("part-launch", "-> WAIT_LAUNCHED_PENDING_PLAYER("),
                                           std::pair("part-picture", "-> WAIT_SHUTDOWN_CURRENT_PLAYER("),
                                           std::pair("part-handover", "-> SWITCH_PLAYER(")}) {
        const std::vector<double> times = decoder.timesInLog(transition);
        const double at = times.empty() ? -1 : 1000 * (logBegan + times.back() - askedAt);
        if (at < before)
            return;
        parts.emplace_back(part, at - before);
        before = at;
    }
    for (const auto& [part, time] : parts)
        tellSample(part, side, time);
    tellSample("part-display", side, answer - before);
}

} // namespace bench
