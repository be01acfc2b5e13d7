// The content of a session that shows one decoder.
#pragma once

#include "appliance/screen/composition.h"
#include "appliance/screen/monitor/content.h"
#include "appliance/screen/monitor/decoder_keys.h"

namespace screen {

// The screen of this appliance fills the window, in its own proportions.
class DecoderContent : public Content {
public:
    DecoderContent();

    const std::vector<Part>& parts(Size window) override;
    bool wait(int timeoutMs) override;
    void keyDown(const Key& key) override;
    void keyUp(const Key& key) override;
    void click(int x, int y) override;
    void tick() override;

private:
    Composer composer_;
    DecoderKeys keys_;
    std::vector<Part> parts_;
    std::uint64_t seen_ = 0; // number of the newest frame at the last call of parts()
};

// The largest place in the window for a screen of that shape.
Rectangle placeOf(const ScreenShape& screen, Size window);

} // namespace screen
