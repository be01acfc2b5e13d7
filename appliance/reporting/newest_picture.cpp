#include "appliance/reporting/newest_picture.h"

#include "appliance/screen/frame_store.h"

#include <libcommon/display.h>

#include <algorithm>

std::optional<Picture> readPicture() {
    screen::FrameStore store;
    const screen::FrameInfo info = store.newestInfo();
    if (info.number == 0) {
        return std::nullopt;
    }
    Picture picture;
    picture.number = info.number;
    picture.time = info.time;
    picture.source = info.source;
    picture.playerPid = info.pid;
    picture.blanked = info.time <= std::max(store.blankedAt(), libcommon::osdBlankTime());
    return picture;
}
