#include "appliance/mqtt/detections.h"

#include "appliance/commands/actions.h"
#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/source_choice.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/in_force.h"

#include <libcommon/clock.h>
#include <libcommon/display.h>
#include <libcommon/log.h>
#include <libcommon/params.h>

#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr int messageLine = 2;       // of the on-screen texts; a selection clears line 1
constexpr int usualDisplayTime = 10; // seconds; with 0 a text of ours would never go
constexpr std::int64_t second = 1'000'000;

bool isManual() {
    const InForce inForce = readInForce();
    return inForce.known ? inForce.sequenceMode == "manual"
                         : ParamWrapper(0, false)["Decoder.SequenceMode"] == "manual";
}

int displayTime() {
    const int seconds = ParamWrapper(0, false)["Alarm.DisplayTime"].toInt();
    return seconds > 0 ? seconds : usualDisplayTime;
}

// A detector may say when it saw something: "time" in seconds since 1970.
bool isOld(const json& payload, int maximumAge) {
    if (!payload.is_object()) {
        return false;
    }
    const auto time = payload.find("time");
    return time != payload.end() && time->is_number() && timeNow() - time->get<double>() > maximumAge;
}

} // namespace

std::vector<json> Detections::take(const std::vector<Rule>& rules, const std::string& topic,
                                   const std::string& payload, int maximumAge) {
    std::vector<json> events;
    const json value = payloadValue(payload);
    const std::int64_t now = gettimeusec();
    for (const Rule& rule : rules) {
        const std::optional<Detection> detection = rule.judge(topic, value);
        const auto last = last_.find(rule.name);
        if (!detection || isOld(value, maximumAge) ||
            (last != last_.end() && now - last->second < rule.minimumTime * second)) {
            continue;
        }
        json event{{"rule", rule.name}, {"topic", topic}, {"source", detection->source}, {"text", detection->text}};
        std::string as;
        try {
            event["answer"] = act(*detection, as);
            event["done"] = true;
            last_[rule.name] = now;
        } catch (const Refused& refused) {
            event["answer"] = refused.what();
            event["done"] = false;
        }
        event["as"] = as;
        logmsg(6, "Rule %s: %s", rule.name.c_str(), event["answer"].get<std::string>().c_str());
        events.push_back(std::move(event));
    }
    return events;
}

std::string Detections::act(const Detection& detection, std::string& as) {
    const bool manual = isManual();
    as = manual ? "alarm" : "select";
    if (ParamWrapper(0, false)["Alarm.Enabled"] != "yes") {
        throw Refused("the detection is dropped: Alarm.Enabled is not \"yes\"");
    }
    requireRunningAppliance();
    if (!manual) {
        return show(detection);
    }
    const ChosenSource source = chooseSource(detection.source);
    return raiseAlarm(source.index, source.name, detection.text);
}

// An alarm event would stay queued in automatic mode, and show at some later time.
std::string Detections::show(const Detection& detection) {
    if (!isConnected()) {
        throw Refused(isWanted() ? "the detection is dropped: the decoder is locked or about to connect"
                                 : "the detection is dropped: the decoder is disconnected");
    }
    const int seconds = displayTime();
    if (shown_ && gettimeusec() - *shown_ < seconds * second) {
        throw Refused("the detection is dropped: the one before still shows");
    }
    const ChosenSource source = chooseSource(detection.source);
    std::string answer = selectSource(source.index, source.name);
    if (!detection.text.empty()) {
        osdPrintf(messageLine, seconds, "%s", detection.text.c_str());
    }
    shown_ = gettimeusec();
    return answer;
}

} // namespace mqtt
