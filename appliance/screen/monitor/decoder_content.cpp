#include "appliance/screen/monitor/decoder_content.h"

#include <libcommon/clock.h>

#include <algorithm>

namespace screen {
namespace {

constexpr int noticeMs = 4000;

} // namespace

Rectangle placeOf(const ScreenShape& screen, Size window) {
    // A display with the mode of a television is one, so its pixels are those of the screen.
    if (screen.size == window)
        return {0, 0, window.width, window.height};
    // Compares proportions without fractions.
    const std::int64_t wide = std::int64_t{screen.size.width} * screen.aspectNumerator * window.height;
    const std::int64_t high = std::int64_t{screen.size.height} * screen.aspectDenominator * window.width;
    Size size = window;
    if (wide > high)
        size.height = std::max(static_cast<int>(window.height * high / wide), 1);
    else if (wide < high)
        size.width = std::max(static_cast<int>(window.width * wide / high), 1);
    return {(window.width - size.width) / 2, (window.height - size.height) / 2, size.width, size.height};
}

DecoderContent::DecoderContent()
    : keys_([this](const std::string& text) { composer_.notice(text, noticeMs); },
            [this] { composer_.toggleName(); }) {
    composer_.showLastPictures();
}

const std::vector<Part>& DecoderContent::parts(Size window) {
    const ScreenShape monitor = screenOf(window);
    const Look& look = composer_.look(&monitor);
    seen_ = look.info.number;
    parts_.resize(1);
    parts_[0].look = &look;
    parts_[0].at = placeOf(look.screen, window);
    if (parts_[0].visit == nullptr)
        parts_[0].visit = [this](const auto& visit) { return composer_.visitFrame(visit); };
    return parts_;
}

bool DecoderContent::wait(int timeoutMs) {
    return composer_.wait(seen_, timeoutMs) != seen_;
}

void DecoderContent::keyDown(const Key& key) {
    keys_.down(key, gettimeusec());
}

void DecoderContent::keyUp(const Key& key) {
    keys_.up(key, gettimeusec());
}

void DecoderContent::click(int /*x*/, int /*y*/) {}

void DecoderContent::tick() {
    keys_.tick(gettimeusec());
}

} // namespace screen
