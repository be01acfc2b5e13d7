#include "bench/screen/decoder_side.h"

#include "appliance/streams/kept_status.h"
#include "bench/log_time.h"
#include "bench/samples.h"

#include <libcommon/events.h>

#include <csignal>
#include <stdexcept>
#include <utility>

namespace bench {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Process;

namespace {

std::size_t keptSources() {
    std::size_t count = 0;
    for (const streams::KeptReport& one :
         streams::askKeeper(2000).value_or(std::vector<streams::KeptReport>()))
        count += one.kept ? one.sources.size() : 0;
    return count;
}

} // namespace

DecoderSide::DecoderSide(Appliance& decoder, const x_server::XServer& server, bool warm)
    : decoder_(decoder), server_(server), warm_(warm) {}

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
        if (!appliance::eventually([] { return keptSources() == 2; }))
            throw std::runtime_error("its sources are not kept");
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
