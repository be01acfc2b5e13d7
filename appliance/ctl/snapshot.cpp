#include "appliance/ctl/snapshot.h"

#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/screen/composition.h"

#include <cerrno>
#include <cstring>
#include <iostream>

std::string saveSnapshot(const std::string& file) {
    requireRunningAppliance();
    screen::Composer composer;
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
    return "saved " + file + ", " + std::to_string(picture.width) + "x" + std::to_string(picture.height) +
           (picture.blanked ? ", without a frame: the screen is blank"
                            : ", frame " + std::to_string(picture.info.number) + " of source " +
                                  std::to_string(picture.info.source));
}
