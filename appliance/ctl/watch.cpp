#include "appliance/ctl/watch.h"

#include "appliance/ctl/actions.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <ctime>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <ostream>
#include <sstream>

namespace {

constexpr std::int64_t window = 1'000'000; // microseconds
constexpr timespec betweenLooks{0, 100'000'000};

std::string sourceValue(const DecoderStatus& status) {
    if (status.currentSource < 0) {
        return "none";
    }
    return std::to_string(status.currentSource) + " \"" + status.sourceName + '"';
}

std::string pictureState(const DecoderStatus& status) {
    if (!status.picture) {
        return "none";
    }
    return status.picture->blanked ? "blank" : "of source " + std::to_string(status.picture->source);
}

std::string rateText(double rate) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << rate << " frames/s";
    return text.str();
}

std::string wallTime() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    tm local{};
    localtime_r(&seconds, &local);
    std::ostringstream text;
    text << std::put_time(&local, "%H:%M:%S") << '.' << std::setw(3) << std::setfill('0') << milliseconds;
    return text.str();
}

void print(const Change& change, bool json, std::ostream& out) {
    if (json) {
        out << nlohmann::json{{"time", wallTime()}, {"what", change.what}, {"value", change.value}}.dump()
            << '\n';
    } else {
        out << wallTime() << "  " << std::left << std::setw(11) << change.what << change.value << '\n';
    }
    out.flush();
}

} // namespace

std::vector<Change> everything(const DecoderStatus& now) {
    std::vector<Change> all{
        {"decoder", now.supervisorPid < 0 ? "gone" : "pid " + std::to_string(now.supervisorPid)},
        {"connected", now.connected ? "yes" : "no"},
        {"mode", now.mode},
        {"source", sourceValue(now)},
        {"error", now.errorCode}};
    for (int line = 0; line < libcommon::osdLines; ++line) {
        all.push_back({"text " + std::to_string(line), now.osd[line]});
    }
    all.push_back({"LED", ledText(now.statusLed)});
    all.push_back({"picture", pictureState(now)});
    return all;
}

std::vector<Change> changesBetween(const DecoderStatus& before, const DecoderStatus& now) {
    const std::vector<Change> old = everything(before);
    std::vector<Change> changed;
    for (const Change& change : everything(now)) {
        const auto same = std::ranges::find(old, change.what, &Change::what);
        if (same->value != change.value) {
            changed.push_back(change);
        }
    }
    return changed;
}

bool FrameRate::add(std::uint64_t number, std::int64_t time) {
    if (!started_ || number < windowNumber_) {
        started_ = true;
        windowNumber_ = number;
        windowTime_ = time;
        return false;
    }
    if (time - windowTime_ < window) {
        return false;
    }
    const double rate =
        static_cast<double>(number - windowNumber_) * 1e6 / static_cast<double>(time - windowTime_);
    windowNumber_ = number;
    windowTime_ = time;
    const double change = std::abs(rate - announced_);
    if (announced_ >= 0 && (change < 0.5 || change < announced_ / 10)) {
        return false;
    }
    announced_ = rate;
    return true;
}

void watchDecoder(double seconds, bool json, std::ostream& out) {
    requireRunningAppliance();
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, nullptr);

    const std::int64_t start = gettimeusec();
    DecoderStatus shown = readDecoderStatus();
    for (const Change& change : everything(shown)) {
        print(change, json, out);
    }
    FrameRate rate;
    while (sigtimedwait(&ends, nullptr, &betweenLooks) < 0 &&
           (seconds == 0 || static_cast<double>(gettimeusec() - start) < seconds * 1e6)) {
        DecoderStatus now = readDecoderStatus();
        for (const Change& change : changesBetween(shown, now)) {
            print(change, json, out);
        }
        if (now.picture && rate.add(now.picture->number, gettimeusec())) {
            print({"rate", rateText(rate.value())}, json, out);
        }
        shown = std::move(now);
    }
}
