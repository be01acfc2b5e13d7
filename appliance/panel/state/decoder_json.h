// What the decoder does and its sources, as the JSON of the panel's API. No passwords.
#pragma once

#include "appliance/reporting/decoder_status.h"
#include "appliance/reporting/source_report.h"
#include "appliance/sound/sound_control.h"

#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

namespace panel {

// The name that people know the decoder by: Panel.Name, or the machine's name without that. Any thread.
std::string decoderName();

// What a status needs beside the record of the decoder.
struct StatusContext {
    std::string decoder;            // decoderName()
    std::string machineState;       // of the supervisor's state machine; "": not known
    std::int64_t now = 0;           // gettimeusec()'s clock
    std::int64_t shownSince = 0;    // the same; when the source on the screen appeared; 0: nothing shows
    std::string shownSinceText;     // in ISO 8601
    int shownSource = -1;           // the source of the newest picture, in the list in force
    std::optional<int> displayTime; // of the current source, seconds
    sound::Settings sound;
};

// What the decoder does, in one word: "stopped", "disconnected", "locked" (also: about to connect), "paused", "detecting",
// "noConnection", "waiting" (no picture yet), "playing".
std::string activityOf(const DecoderStatus& status);

// Whether the sequence is paused: the supervisor says so on the screen.
bool isPaused(const DecoderStatus& status);

// The seconds until the sequence goes on; nothing in manual mode, during a pause and without a picture.
std::optional<double> secondsLeft(const DecoderStatus& status, const StatusContext& context);

// As `decoderctl status --json`, and more.
nlohmann::json statusObject(const DecoderStatus& status, const StatusContext& context);

// The same without what changes with each picture or moment: two that are equal need no new event.
nlohmann::json comparableStatus(nlohmann::json status);

// A still of a source: the last picture that it showed.
struct StillInfo {
    std::string key;  // another one for another picture
    std::string time; // ISO 8601
};
using FindStill = std::function<std::optional<StillInfo>(const std::string& sourceName)>;

// One source as `decoderctl source --json`, and more.
nlohmann::json sourceObject(const SourceReport& source, bool current, const FindStill& still);
nlohmann::json sourceObjects(const std::vector<SourceReport>& sources, int current, const FindStill& still);

// The list without ages and times that change all the time.
nlohmann::json comparableSources(nlohmann::json sources);

// The value of a status key ("Model") or of a configured key ("DisplayTime"), in any letter case; "" when missing.
std::string statusValue(const SourceReport& source, std::string_view key);
std::string configuredValue(const SourceReport& source, std::string_view key);

} // namespace panel
