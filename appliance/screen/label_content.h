// Decides what the label says.
#pragma once

#include "appliance/screen/appliance_view.h"
#include "appliance/screen/label.h"
#include "appliance/screen/screen_settings.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace screen {

// The picture that the label is for.
struct ShownSource {
    int source = -1;               // index; -1: no picture is visible, or nobody knows of which source it is
    std::int64_t visibleSince = 0; // gettimeusec()'s clock

    bool operator==(const ShownSource&) const = default;
};

// The source that is shown, or that would be if it had a picture: Decoder.Info.CurrentSource. -1: none.
int currentSource(const ApplianceView& appliance);

// "still for 40 s" of a number of seconds; "" of any other text.
std::string stillText(const std::string& seconds);

// For one thread at a time.
class LabelContent {
public:
    // The label at this time (gettimeusec()). Files are looked at a few times a second at most, and when another source
    // is shown.
    const LabelParts& at(std::int64_t now, const ShownSource& shown, const ScreenSettings& settings,
                         const ApplianceView& appliance);

    // From now on the name is shown, or hidden if the last label had it, whatever the settings say.
    void toggleName();

private:
    bool showsName(std::int64_t now, const ShownSource& shown, const ScreenSettings& settings) const;
    void readSource(int source, const ApplianceView& appliance);

    LabelParts parts_;
    std::optional<bool> nameWanted_; // by the operator
    int source_ = -1;                // that the values below are of
    std::int64_t readAgainAt_ = 0;
    std::string name_;
    std::string reason_;
    std::string still_;
};

} // namespace screen
