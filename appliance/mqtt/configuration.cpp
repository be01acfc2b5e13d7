#include "appliance/mqtt/configuration.h"

#include "appliance/mqtt/rules/topic_filter.h"

#include <libcommon/params.h>
#include <libcommon/text.h>

#include <algorithm>
#include <unistd.h>

namespace mqtt {
namespace {

constexpr std::string_view notInLevels = "/+#";
constexpr int usualAge = 10;

std::string orUsual(const std::string& value, const std::string& usual) {
    return value.empty() ? usual : value;
}

// Two decoders with one topic would be one client, and end each other's connection.
std::string clientIdOf(const std::string& topic) {
    std::string id = "decoder-mqtt-" + topic;
    std::ranges::replace(id, '/', '-');
    return id;
}

void readBroker(const ParamWrapper& parameters, Configuration& configuration) {
    const std::string broker = parameters["Mqtt.Broker"].toString();
    if (broker.empty()) {
        configuration.mistake = "Mqtt.Broker is not set";
        return;
    }
    if (const std::string mistake = brokerMistake(broker); !mistake.empty()) {
        configuration.mistake = "Mqtt.Broker " + mistake;
        return;
    }
    if (const std::string mistake = ownTopicMistake(configuration.topic); !mistake.empty()) {
        configuration.mistake = "Mqtt.Topic " + mistake;
        return;
    }
    LinkSettings& link = configuration.link;
    readBrokerUrl(broker, link.broker);
    link.user = parameters["Mqtt.UserName"].toString();
    link.password = parameters["Mqtt.Password"].toString();
    link.caFile = parameters["Mqtt.CAFile"].toString();
    link.certFile = parameters["Mqtt.CertFile"].toString();
    link.keyFile = parameters["Mqtt.KeyFile"].toString();
    link.clientId = clientIdOf(configuration.topic);
    link.willTopic = configuration.topic + "/availability";
}

void readRules(Configuration& configuration) {
    for (const SourceParams& section : getSubGroups(0, "Rule")) {
        const auto name = section.find("Name");
        Rule rule;
        const std::string text = name == section.end() ? "" : name->second;
        const std::vector<RuleMistake> mistakes = readRule(text, section, rule);
        for (const RuleMistake& mistake : mistakes) {
            configuration.ruleMistakes.push_back("Rule." + text + ": " + mistake.key +
                                                 (mistake.key.empty() ? "" : " ") + mistake.reason);
        }
        if (mistakes.empty()) {
            configuration.rules.push_back(std::move(rule));
        }
    }
}

} // namespace

Configuration readConfiguration() {
    const ParamWrapper parameters(0, false);
    Configuration configuration;
    configuration.topic = orUsual(parameters["Mqtt.Topic"].toString(), usualTopic());
    configuration.groups = groupNames(parameters["Mqtt.Groups"].toString());
    configuration.discovery = parameters["Mqtt.Discovery"] == "yes";
    configuration.discoveryPrefix = orUsual(parameters["Mqtt.DiscoveryPrefix"].toString(), "homeassistant");
    if (!filterMistake(configuration.discoveryPrefix).empty() ||
        configuration.discoveryPrefix.find_first_of("+#") != std::string::npos) {
        configuration.discoveryPrefix = "homeassistant";
    }
    const int age = parameters["Mqtt.MaximumAge"].toInt();
    configuration.maximumAge = age > 0 ? age : usualAge;
    readBroker(parameters, configuration);
    readRules(configuration);
    return configuration;
}

std::string usualTopic() {
    char host[256] = "";
    gethostname(host, sizeof host - 1);
    std::string name = libcommon::printable(host);
    name.resize(std::min(name.find('.'), name.size()));
    std::ranges::replace_if(
        name, [](char c) { return notInLevels.find(c) != std::string_view::npos; }, '-');
    if (name.empty() || name.front() == '_') {
        name = "decoder" + name;
    }
    return "skelmor/" + name;
}

std::vector<std::string> groupNames(const std::string& list) {
    std::vector<std::string> names;
    std::string_view rest = list;
    while (!rest.empty()) {
        const std::size_t comma = std::min(rest.find(','), rest.size());
        const std::string name(libcommon::trimmed(rest.substr(0, comma)));
        const bool usable = !name.empty() && name.find_first_of(notInLevels) == std::string::npos;
        if (usable && std::ranges::find(names, name) == names.end()) {
            names.push_back(name);
        }
        rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
    return names;
}

} // namespace mqtt
