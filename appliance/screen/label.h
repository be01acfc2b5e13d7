// The discreet labels at the bottom left: small light letters on a dark transparent box.
#pragma once

#include "appliance/screen/overlay.h"

#include <optional>
#include <string>

namespace screen {

// What the label says. Empty parts are left out; without any part there is no label.
struct LabelParts {
    std::string name; // of the source
    std::string
        reason; // why the source has no picture; ends, like the name, in an ellipsis when there is no room
    std::string clock;
    std::string still; // for how long the picture has not changed

    bool operator==(const LabelParts&) const = default;
};

// A text in such a box in the middle of the screen, as a mark in place of a picture. An empty text has an empty image.
OverlayImage middleLabel(const std::string& text, Size screen);

// One label. For one thread at a time.
class Label {
public:
    // `row` 0 is the lowest one, 1 is above it.
    explicit Label(int row) : row_(row) {}

    // Renders these parts for that screen. False when they are the same as before; nothing is rendered then.
    bool update(const LabelParts& parts, Size screen);

    const std::optional<OverlayImage>& image() const { return image_; }

private:
    int row_;
    LabelParts parts_;
    Size screen_;
    std::optional<OverlayImage> image_;
};

} // namespace screen
