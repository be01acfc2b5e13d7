// The messages that introduce the decoder to Home Assistant (MQTT discovery). Pure.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace mqtt {

// Topic and payload of each message; all are retained. `topic` is the decoder's own, `options` are those of the sources.
std::vector<std::pair<std::string, std::string>>
introduction(const std::string& prefix, const std::string& topic, const std::vector<std::string>& options);

// The topics of the introduction. An empty retained message on each of them removes the decoder.
std::vector<std::string> introductionTopics(const std::string& prefix, const std::string& topic);

} // namespace mqtt
