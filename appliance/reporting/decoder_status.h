// What the decoder is doing now, as one record: read from the appliance's files, shown as text or JSON.
#pragma once

#include "appliance/reporting/newest_picture.h"

#include <libcommon/display.h>

#include <array>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

struct DecoderStatus {
    int supervisorPid = -1;     // -1: none runs
    bool connected = false;     // "Decoder.Info.Connected"
    bool wanted = false;        // "Decoder.Connected"
    std::string mode;           // in force while it is connected, else as configured
    std::string configuredMode; // "Decoder.SequenceMode"
    bool unread = false;        // the configuration has changed since the decoder connected
    int sourcesNotInForce = 0;  // sources that are new or changed since then
    int currentSource = -1;     // "Decoder.Info.CurrentSource"; -1 none
    std::string sourceName;     // "" when there is none
    std::string sourceAddress;  // as configured
    std::string errorCode;      // status value "ErrorCode" of the current source
    std::array<std::string, libcommon::osdLines> osd;
    libcommon::LedState statusLed;  // LED 2
    std::optional<Picture> picture; // the newest frame; none before the first
};

// Reads the whole record. Values come from several files, so they may be from before and after a change.
DecoderStatus readDecoderStatus();

// Several lines, for people.
std::string statusText(const DecoderStatus& status);

// {"connected", "mode", "configuredMode", "currentSource", "sourceName", "playerPid", "osd", "leds", "frame", ...}
nlohmann::json statusJson(const DecoderStatus& status);

// "auto"; "auto; configured: manual, in force at the next connect".
std::string modeText(const DecoderStatus& status);

// "red, blinking"; "off" for a LED that was never set.
std::string ledText(const libcommon::LedState& led);

// {"led", "colour", "pattern", "text"} of the status LED.
nlohmann::json ledJson(const libcommon::LedState& led);
