// Acting on what detectors report.
#pragma once

#include "appliance/mqtt/rules/rule.h"

#include <cstdint>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace mqtt {

// Remembers when each rule raised its last alarm. One thread.
class Detections {
public:
    // Looks at a message with all rules, and does what they say: an alarm in manual mode, a selection in automatic mode.
    // Returns the value of an event (docs/mqtt.md) for each rule that held.
    std::vector<nlohmann::json> take(const std::vector<Rule>& rules, const std::string& topic,
                                     const std::string& payload, int maximumAge);

private:
    nlohmann::json act(const Rule& rule, const Detection& detection);

    std::map<std::string, std::int64_t> last_; // rule to the time of its last alarm, in microseconds
    std::optional<std::int64_t> shown_; // when a source was selected for a detection, in automatic mode
};

} // namespace mqtt
