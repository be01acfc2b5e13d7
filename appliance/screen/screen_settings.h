// The parameters of the screen.
#pragma once

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/layout.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace screen {

inline constexpr Size smallestScreen{160, 120};
inline constexpr Size largestScreen{3840, 2160};

struct ScreenSettings {
    std::optional<Size> size; // Screen.Size; nothing: auto
    Fit fit = Fit::bars;      // Screen.Fit
    int nameSeconds = 0;      // Screen.ShowName: how long after a change of the source; 0: not at all
    bool nameAlways = false;
    bool clock = false; // Screen.ShowClock
};

// The size that a text names, WIDTHxHEIGHT, both even; nothing for any other text and for a size outside the limits.
std::optional<Size> screenSize(std::string_view text);

std::string sizeText(Size size); // "1280x720"

// Reads the parameters. An empty value is the default. A value that is not allowed counts as the default, with one
// line in the log. For one thread at a time.
class SettingsReader {
public:
    // The settings at this time (gettimeusec()). Files are looked at a few times a second at most.
    const ScreenSettings& at(std::int64_t now, const ApplianceView& appliance);

private:
    void read(const ApplianceView& appliance);
    void refuse(std::size_t parameter, const std::string& value);

    ScreenSettings settings_;
    std::int64_t readAgainAt_ = 0;
    std::array<std::string, 4> refused_; // the values in the log
};

} // namespace screen
