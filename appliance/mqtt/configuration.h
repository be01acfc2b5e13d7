// The sections [Mqtt] and [Rule.NAME] of the configuration.
#pragma once

#include "appliance/mqtt/link/link.h"
#include "appliance/mqtt/rules/rule.h"

#include <string>
#include <vector>

namespace mqtt {

struct Configuration {
    std::string mistake; // why there is no connection; "" when there is a usable broker
    LinkSettings link;
    std::string topic; // SITE/NAME
    std::vector<std::string> groups;
    bool discovery = false;
    std::string discoveryPrefix;
    int maximumAge = 10; // seconds
    std::vector<Rule> rules;
    std::vector<std::string> ruleMistakes; // in words, for the log; such rules are left out

    std::string site() const { return topic.substr(0, topic.rfind('/')); }
    std::string name() const { return topic.substr(topic.rfind('/') + 1); }
};

// Reads it from parameter file 0.
Configuration readConfiguration();

// "skelmor/" and the name of this machine, as far as it can be a level of a topic.
std::string usualTopic();

// The names in a list with commas, without blanks around them; those that can't be a level are left out.
std::vector<std::string> groupNames(const std::string& list);

} // namespace mqtt
