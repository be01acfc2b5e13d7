// The commands that arrive over MQTT: docs/mqtt.md describes them.
#pragma once

#include <cstddef>
#include <deque>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>

namespace mqtt {

struct Command {
    std::string word;           // "select"
    std::string id;             // "" when it has none
    std::optional<double> time; // when it was sent, in seconds since 1970
    std::string source;
    std::string text;
    bool hold = false;  // button
    bool muted = false; // mute
    int percent = 0;    // volume
};

// Reads a payload. Throws Refused with the reason when it can't be meant. `id` and `time` of a JSON payload are in
// `command` then, too. Pure.
void readCommand(std::string_view word, std::string_view payload, Command& command);

// Does it, and returns what was done in words. Throws Refused with the reason when it was refused or failed.
std::string carryOut(const Command& command);

// Keeps old and doubled commands away. One thread.
class CommandGate {
public:
    // Why a command must not be carried out, "" when it may. `now` is the time in seconds since 1970.
    std::string refusal(const Command& command, bool retained, int maximumAge, double now);

private:
    static constexpr std::size_t remembered = 64;
    std::deque<std::string> ids_; // of the last commands, oldest first
};

// {"time", "id", "command", "done", "text"}; without "id" when there is none.
nlohmann::json replyJson(const Command& command, bool done, const std::string& text);

} // namespace mqtt
