#include "appliance/mqtt/detections.h"

#include "appliance/commands/alarm_or_select.h"
#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/source_choice.h"
#include "appliance/operating/refused.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>
#include <libcommon/params.h>

#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr std::int64_t second = 1'000'000;

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
    for (const Rule& rule : rules) {
        const std::optional<Detection> detection = rule.judge(topic, value);
        const auto last = last_.find(rule.name);
        const bool tooSoon = last != last_.end() && gettimeusec() - last->second < rule.minimumTime * second;
        if (!detection || tooSoon || isOld(value, maximumAge)) {
            continue;
        }
        json event = act(rule, *detection);
        event["topic"] = topic;
        logmsg(6, "Rule %s: %s", rule.name.c_str(), event["answer"].get<std::string>().c_str());
        events.push_back(std::move(event));
    }
    return events;
}

json Detections::act(const Rule& rule, const Detection& detection) {
    json event{{"rule", rule.name},
               {"source", detection.source},
               {"text", detection.text},
               {"as", ""},
               {"done", false}};
    try {
        // In manual mode the decoder itself drops an alarm while the one before shows.
        if (shown_ &&
            gettimeusec() - *shown_ < ParamWrapper(0, false)["Alarm.DisplayTime"].toInt() * second) {
            throw Refused("the detection is dropped: the one before still shows");
        }
        const ChosenSource source = chooseSource(detection.source);
        const AlarmAnswer answer = alarmOrSelect(source.index, source.name, detection.text);
        last_[rule.name] = gettimeusec();
        if (answer.selected) {
            shown_ = gettimeusec();
        }
        event["as"] = answer.selected ? "select" : "alarm";
        event["answer"] = answer.sentence;
        event["done"] = true;
    } catch (const Refused& refused) {
        event["answer"] = refused.what();
    }
    return event;
}

} // namespace mqtt
