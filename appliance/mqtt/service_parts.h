// What the parts of the service share.
#pragma once

#include "appliance/mqtt/link/link.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <poll.h>
#include <string>
#include <vector>

namespace mqtt {

inline constexpr std::int64_t second = 1'000'000; // microseconds
inline constexpr std::size_t mostUnconfirmed =
    100; // a broker that does not keep up gets the newest state later

// Numbers of subscriptions.
inline constexpr int ofCommands = 1;
inline constexpr int ofRules = 2;
inline constexpr int ofIntroduction = 3;

// The topics below a decoder's own that the broker keeps.
inline std::vector<std::string> keptTopics(const std::string& topic) {
    return {topic + "/availability", topic + "/presence", topic + "/state", topic + "/sources"};
}

// Waits for the broker and serves the link.
inline void pollLink(Link& link, int milliseconds) {
    pollfd socket{link.socket(), link.events(), 0};
    poll(&socket, 1, milliseconds);
    link.serve(socket.revents);
}

inline void sooner(std::optional<std::int64_t>& deadline, std::int64_t time) {
    deadline = deadline ? std::min(*deadline, time) : time;
}

} // namespace mqtt
