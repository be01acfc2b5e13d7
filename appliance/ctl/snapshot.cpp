#include "appliance/ctl/snapshot.h"

#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/screen/composition.h"
#include "appliance/screen/screen_settings.h"

#include <cerrno>
#include <cstring>
#include <iostream>

namespace {

screen::ScreenShape wantedScreen(const std::string& text) {
    const std::optional<screen::Size> size = screen::screenSize(text);
    if (!size) {
        throw Refused(inQuotes(text) + " is not a size: write WIDTHxHEIGHT, even numbers from " +
                      screen::sizeText(screen::smallestScreen) + " to " +
                      screen::sizeText(screen::largestScreen));
    }
    return screen::screenOf(*size);
}

} // namespace

std::string saveSnapshot(const std::string& file, const std::string& size) {
    screen::Composer composer;
    if (!size.empty()) {
        composer.useScreen(wantedScreen(size));
    }
    requireRunningAppliance();
    const screen::Picture& picture = composer.compose();
    if (file == "-") {
        const std::vector<std::uint8_t> png = screen::pngOf(picture);
        std::cout.write(reinterpret_cast<const char*>(png.data()), static_cast<std::streamsize>(png.size()));
        if (png.empty() || !std::cout.flush()) {
            throw Refused("the picture could not be written");
        }
        return "";
    }
    if (!screen::writePng(picture, file)) {
        throw Refused(file + " could not be written: " + std::strerror(errno));
    }
    return "saved " + file + ", " + screen::sizeText(picture.screen.size) +
           (picture.blanked ? ", without a frame: the screen is blank"
                            : ", frame " + std::to_string(picture.info.number) + " of source " +
                                  std::to_string(picture.info.source));
}
