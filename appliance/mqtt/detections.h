// Acting on what detectors report: an alarm in manual mode, a selection in automatic mode.
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
    // Looks at a message with all rules, and does what they say. Returns one event for each rule that held, the "value"
    // of an event of docs/mqtt.md.
    std::vector<nlohmann::json> take(const std::vector<Rule>& rules, const std::string& topic,
                                     const std::string& payload, int maximumAge);

private:
    // Each returns what was done, in words, or throws Refused. `as` becomes "alarm" or "select".
    std::string act(const Detection& detection, std::string& as);
    std::string show(const Detection& detection);

    std::map<std::string, std::int64_t> last_; // rule to the time of its last alarm, in microseconds
    std::optional<std::int64_t> shown_;        // when a selection was made for a detection, in automatic mode
};

} // namespace mqtt
