#include "appliance/mqtt/commands.h"

#include "appliance/commands/actions.h"
#include "appliance/commands/connection.h"
#include "appliance/mqtt/decoder_state.h"
#include "appliance/mqtt/rules/rule.h"
#include "appliance/mqtt/source_choice.h"
#include "appliance/operating/button.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/muting.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr std::size_t longestCommand = 4096;
constexpr std::size_t longestId = 100;

// A payload that is no JSON object has one value, which is `key` of an object.
json asObject(std::string_view payload, const char* key) {
    payload.remove_suffix(payload.size() - std::min(payload.find_last_not_of("\r\n") + 1, payload.size()));
    const std::string text(libcommon::trimmed(payload));
    json value = payloadValue(text);
    if (value.is_object()) {
        return value;
    }
    json object = json::object();
    if (!text.empty() && *key != '\0') {
        object[key] = value.is_string() ? value : json(text);
    } else if (!text.empty()) {
        throw Refused("the command takes no value, not " + inQuotes(text));
    }
    return object;
}

std::string textOf(const json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || found->is_null()) {
        return "";
    }
    if (!found->is_string() && !found->is_number_integer()) {
        throw Refused(std::string("\"") + key + "\" is not a text");
    }
    return valueText(*found);
}

std::string sourceOf(const json& object) {
    std::string source = textOf(object, "source");
    if (source.empty()) {
        throw Refused("the command needs a source");
    }
    return source;
}

int percentOf(const json& object) {
    const std::string text = textOf(object, "percent");
    int percent = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), percent);
    if (error != std::errc() || end != text.data() + text.size() || percent < 0 || percent > 100) {
        throw Refused("the volume is a number from 0 to 100, not " + inQuotes(text));
    }
    return percent;
}

bool isHeld(const json& object) {
    const std::string action = textOf(object, "action");
    if (!action.empty() && action != "press" && action != "hold") {
        throw Refused("the button takes press or hold, not " + inQuotes(action));
    }
    return action == "hold";
}

bool isMuted(const json& object) {
    const auto found = object.find("muted");
    if (found == object.end()) {
        return true;
    }
    const std::string text = valueText(*found);
    if (text == "on" || text == "true") {
        return true;
    }
    if (text != "off" && text != "false") {
        throw Refused("mute takes on or off, not " + inQuotes(text));
    }
    return false;
}

struct Word {
    std::string_view word;
    const char* key; // of the value of a payload that is no JSON object; "": it has none
    void (*read)(const json& object, Command& command);
    std::string (*carryOut)(const Command& command);
};

void readNothing(const json& /*object*/, Command& /*command*/) {}

std::string showSource(const Command& command) {
    requireRunningAppliance();
    const ChosenSource source = chooseSource(command.source);
    return selectSource(source.index, source.name);
}

std::string alarmSource(const Command& command) {
    requireRunningAppliance();
    const ChosenSource source = chooseSource(command.source);
    return raiseAlarm(source.index, source.name, command.text);
}

constexpr std::array words{
    Word{"select", "source", [](const json& object, Command& command) { command.source = sourceOf(object); },
         showSource},
    Word{"alarm", "source",
         [](const json& object, Command& command) {
             command.source = sourceOf(object);
             command.text = libcommon::printable(textOf(object, "text"));
         },
         alarmSource},
    Word{"connect", "", readNothing, [](const Command& /*command*/) { return setConnected(true, 0); }},
    Word{"disconnect", "", readNothing, [](const Command& /*command*/) { return setConnected(false, 0); }},
    Word{"lock", "", readNothing, [](const Command& /*command*/) { return lockDecoder(); }},
    Word{"reconnect", "", readNothing, [](const Command& /*command*/) { return endLock(); }},
    Word{"flush", "", readNothing, [](const Command& /*command*/) { return flushDetections(); }},
    Word{"button", "action", [](const json& object, Command& command) { command.hold = isHeld(object); },
         [](const Command& command) { return pressButton(command.hold); }},
    Word{"volume", "percent",
         [](const json& object, Command& command) { command.percent = percentOf(object); },
         [](const Command& command) { return setSoundVolume(command.percent); }},
    Word{"mute", "muted", [](const json& object, Command& command) { command.muted = isMuted(object); },
         [](const Command& command) { return muteSound(command.muted); }},
};

const Word* findWord(std::string_view word) {
    const auto* const found = std::ranges::find(words, word, &Word::word);
    return found == words.end() ? nullptr : found;
}

} // namespace

void readCommand(std::string_view word, std::string_view payload, Command& command) {
    command.word = libcommon::printable(word);
    if (payload.size() > longestCommand) {
        throw Refused("the command is longer than " + std::to_string(longestCommand) + " bytes");
    }
    const Word* known = findWord(word);
    const json object = asObject(payload, known == nullptr ? "unknown" : known->key);
    command.id = libcommon::printable(textOf(object, "id")).substr(0, longestId);
    if (const auto time = object.find("time"); time != object.end() && !time->is_null()) {
        if (!time->is_number()) {
            throw Refused("\"time\" is not a number of seconds since 1970");
        }
        command.time = time->get<double>();
    }
    if (known == nullptr) {
        throw Refused("there is no command " + inQuotes(word));
    }
    known->read(object, command);
}

std::string carryOut(const Command& command) {
    const Word* known = findWord(command.word);
    return known == nullptr ? "" : known->carryOut(command);
}

std::string CommandGate::refusal(const Command& command, bool retained, int maximumAge, double now) {
    if (retained) {
        return "the command was kept by the broker: publish it without the retain flag";
    }
    if (command.time && now - *command.time > maximumAge) {
        return "the command is " + std::to_string(std::lround(std::min(now - *command.time, 1e9))) +
               " seconds old";
    }
    if (command.id.empty()) {
        return "";
    }
    if (std::ranges::find(ids_, command.id) != ids_.end()) {
        return "the command with this id was received before";
    }
    ids_.push_back(command.id);
    if (ids_.size() > remembered) {
        ids_.pop_front();
    }
    return "";
}

json replyJson(const Command& command, bool done, const std::string& text) {
    json reply{
        {"time", timeNow()}, {"command", command.word}, {"done", done}, {"text", libcommon::printable(text)}};
    if (!command.id.empty()) {
        reply["id"] = command.id;
    }
    return reply;
}

} // namespace mqtt
