// Measures a switch of sources on the frame store, where the user sees it.
#pragma once

#include "tests/appliance/appliance.h"

#include <cstdint>
#include <optional>

namespace bench {

struct Switch {
    double gap = 0;    // milliseconds from the last frame of the old source to the first of the new one
    double answer = 0; // milliseconds from the select event to the first frame of the new source
    double oldPause =
        0; // milliseconds, longest standstill of the old picture between the event and its last frame
    bool blanked = false; // the screen was black in between
};

// Connects this process to that appliance's event queue. Call it once, before any other call of libcommon.
void joinAppliance(const appliance::Appliance& decoder);

// Selects `source` while another one shows, and measures the switch. Returns std::nullopt when the new source did
// not show within ten seconds.
std::optional<Switch> switchTo(appliance::Appliance& decoder, int source);

// The gap of the same switch when the old player is stopped before the new one is started.
std::optional<Switch> stopThenStart(appliance::Appliance& decoder, int source);

} // namespace bench
