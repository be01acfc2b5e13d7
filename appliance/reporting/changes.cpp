#include "appliance/reporting/changes.h"

#include "appliance/operating/quoted_text.h"
#include "appliance/reporting/error_words.h"
#include "appliance/reporting/json_text.h"

#include <libcommon/text.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

constexpr std::int64_t window = 1'000'000; // microseconds

std::string sourceText(const DecoderStatus& status) {
    return status.currentSource < 0
               ? "none"
               : std::to_string(status.currentSource) + ' ' + inQuotes(status.sourceName);
}

nlohmann::json sourceValue(const DecoderStatus& status) {
    if (status.currentSource < 0) {
        return nullptr;
    }
    return {{"index", status.currentSource}, {"name", status.sourceName}, {"address", status.sourceAddress}};
}

nlohmann::json errorValue(const DecoderStatus& status) {
    if (!isError(status.errorCode)) {
        return nullptr;
    }
    return {{"code", status.errorCode}, {"text", errorWords(status.errorCode)}};
}

std::string pictureText(const DecoderStatus& status) {
    if (!status.picture) {
        return "none";
    }
    return status.picture->blanked ? "blank" : "of source " + std::to_string(status.picture->source);
}

nlohmann::json pictureValue(const DecoderStatus& status) {
    if (!status.picture) {
        return nullptr;
    }
    return {{"blank", status.picture->blanked}, {"source", status.picture->source}};
}

} // namespace

std::string isoTime() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    tm local{};
    localtime_r(&seconds, &local);
    std::ostringstream offset;
    offset << std::put_time(&local, "%z"); // "+0100"
    std::ostringstream text;
    text << std::put_time(&local, "%Y-%m-%dT%H:%M:%S") << '.' << std::setw(3) << std::setfill('0')
         << milliseconds << offset.str().substr(0, 3) << ':' << offset.str().substr(3);
    return text.str();
}

Change rateChange(double rate) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(1) << rate;
    return {"rate", text.str() + " frames/s", "rate", {{"framesPerSecond", std::round(rate * 10) / 10}}};
}

std::string changeJsonLine(const Change& change, const std::string& time) {
    return jsonLine({{"time", time}, {"what", change.key}, {"value", change.value}});
}

std::vector<Change> everything(const DecoderStatus& now) {
    const bool gone = now.supervisorPid < 0;
    std::vector<Change> all{
        {"decoder", gone ? "gone" : "pid " + std::to_string(now.supervisorPid), "decoder",
         gone ? nlohmann::json() : nlohmann::json{{"pid", now.supervisorPid}}},
        {"connected", now.connected ? "yes" : "no", "connected", now.connected},
        {"mode", modeText(now), "mode", {{"inForce", now.mode}, {"configured", now.configuredMode}}},
        {"source", sourceText(now), "source", sourceValue(now)},
        {"error", errorText(now.errorCode), "error", errorValue(now)}};
    for (int line = 0; line < libcommon::osdLines; ++line) {
        all.push_back({"text " + std::to_string(line),
                       libcommon::printable(now.osd[line]),
                       "text",
                       {{"line", line}, {"text", now.osd[line]}}});
    }
    all.push_back({"LED", ledText(now.statusLed), "led", ledJson(now.statusLed)});
    all.push_back({"picture", pictureText(now), "picture", pictureValue(now)});
    return all;
}

std::vector<Change> changesBetween(const DecoderStatus& before, const DecoderStatus& now) {
    const std::vector<Change> old = everything(before);
    std::vector<Change> changed;
    for (const Change& change : everything(now)) {
        const auto same = std::ranges::find(old, change.what, &Change::what);
        if (same->text != change.text || same->value != change.value) {
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
