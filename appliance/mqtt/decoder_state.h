// What decoder-mqtt publishes about the decoder, as JSON: docs/mqtt.md describes it.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <utility>
#include <vector>

namespace mqtt {

struct DecoderState {
    int supervisorPid = -1; // -1: none runs
    bool textShows = false; // an alarm shows, which may end without a change of a file
};

// Reads the state without "time", "name" and "groups", which are the caller's.
nlohmann::json readState(DecoderState& more);

// The list of sources.
nlohmann::json readSources();

// The keys of two states that differ, with their new values: the events that are published. Only those that are events.
std::vector<std::pair<std::string, nlohmann::json>> eventsBetween(const nlohmann::json& before,
                                                                  const nlohmann::json& now);

// What names each source in a list of choices: its name, or its number where two have the same name.
std::vector<std::string> sourceOptions(const std::vector<std::string>& names);

// The time now, in seconds since 1970.
double timeNow();

} // namespace mqtt
