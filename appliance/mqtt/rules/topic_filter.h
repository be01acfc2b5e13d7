// The names of MQTT topics, and filters with wildcards. Pure; any thread.
#pragma once

#include <string>
#include <string_view>

namespace mqtt {

// What is wrong with a filter such as `frigate/+/events` or `zigbee2mqtt/#`; "" for nothing.
std::string filterMistake(std::string_view filter);

// Whether a topic fits a filter. As the standard has it, a wildcard at the begin fits no topic that begins with `$`.
bool fitsFilter(std::string_view topic, std::string_view filter);

// The level with this number, from 0 on; "" when the topic has fewer.
std::string_view topicLevel(std::string_view topic, std::size_t number);

// What is wrong with a decoder's own topic, SITE/NAME; "" for nothing.
std::string ownTopicMistake(std::string_view topic);

} // namespace mqtt
