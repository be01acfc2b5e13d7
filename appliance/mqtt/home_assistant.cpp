#include "appliance/mqtt/home_assistant.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace mqtt {
namespace {

using nlohmann::json;

constexpr const char* noSource = "None"; // Home Assistant's word for a choice that is unknown

struct Entity {
    const char* component;
    const char* key; // the end of its identifier
    const char* name;
};

constexpr std::array entities{
    Entity{"select", "source", "Source"},
    Entity{"button", "connect", "Connect"},
    Entity{"button", "disconnect", "Disconnect"},
    Entity{"button", "lock", "Lock"},
    Entity{"button", "reconnect", "Reconnect"},
    Entity{"button", "button", "Button"},
    Entity{"switch", "mute", "Sound muted"},
    Entity{"number", "volume", "Volume"},
    Entity{"sensor", "current_source", "Current source"},
    Entity{"sensor", "error", "Error"},
    Entity{"binary_sensor", "connected", "Connected"},
    Entity{"binary_sensor", "alarm", "Alarm"},
};

// Identifiers take letters, digits, '-' and '_'. Others become their code, so that two topics never become the same one.
std::string identifier(const std::string& topic) {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    for (const char c : topic) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        const auto code = static_cast<unsigned char>(c);
        text += plain      ? std::string{c}
                : c == '/' ? "_"
                           : std::string{'-', digits[code >> 4], digits[code & 15]};
    }
    return text;
}

std::string configTopic(const Entity& entity, const std::string& prefix, const std::string& id) {
    return prefix + '/' + entity.component + '/' + id + '/' + entity.key + "/config";
}

// What only one kind of entity has.
json special(const Entity& entity, const std::string& topic, const std::vector<std::string>& options) {
    const std::string component = entity.component;
    const std::string key = entity.key;
    const std::string command = topic + "/command/" + key;
    if (component == "select") {
        return {{"command_topic", topic + "/command/select"},
                {"options", options},
                {"value_template",
                 std::string("{{ value_json.source.option if value_json.source else '") + noSource + "' }}"}};
    }
    if (component == "button") {
        return {{"command_topic", command}, {"payload_press", key == "button" ? "press" : "{}"}};
    }
    if (component == "switch") {
        return {{"command_topic", command},
                {"payload_on", "on"},
                {"payload_off", "off"},
                {"value_template", "{{ 'on' if value_json.sound.muted else 'off' }}"}};
    }
    if (component == "number") {
        return {{"command_topic", command},
                {"min", 0},
                {"max", 100},
                {"unit_of_measurement", "%"},
                {"value_template", "{{ value_json.sound.volume }}"}};
    }
    if (component == "binary_sensor") {
        return {{"payload_on", "on"},
                {"payload_off", "off"},
                {"value_template", "{{ 'on' if value_json." + key + " else 'off' }}"}};
    }
    return {{"value_template", key == "error"
                                   ? "{{ value_json.error.text if value_json.error else 'none' }}"
                                   : "{{ value_json.source.name if value_json.source else 'none' }}"}};
}

} // namespace

std::vector<std::pair<std::string, std::string>>
introduction(const std::string& prefix, const std::string& topic, const std::vector<std::string>& options) {
    const std::string id = identifier(topic);
    const json device{{"identifiers", {id}},
                      {"name", topic.substr(topic.rfind('/') + 1)},
                      {"manufacturer", "SkelMor"},
                      {"model", "Network video decoder"},
                      {"sw_version", HOUSE_VERSION}};
    std::vector<std::pair<std::string, std::string>> messages;
    for (const Entity& entity : entities) {
        json message = special(entity, topic, options);
        message["name"] = entity.name;
        message["unique_id"] = id + '_' + entity.key;
        message["object_id"] = id + '_' + entity.key;
        message["device"] = device;
        message["availability_topic"] = topic + "/availability";
        message["qos"] = 1;
        if (std::string(entity.component) != "button") {
            message["state_topic"] = topic + "/state";
        }
        messages.emplace_back(configTopic(entity, prefix, id),
                              message.dump(-1, ' ', false, json::error_handler_t::replace));
    }
    return messages;
}

std::vector<std::string> introductionTopics(const std::string& prefix, const std::string& topic) {
    std::vector<std::string> topics;
    for (const Entity& entity : entities) {
        topics.push_back(configTopic(entity, prefix, identifier(topic)));
    }
    return topics;
}

} // namespace mqtt
