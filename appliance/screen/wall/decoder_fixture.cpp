// A program for the tests of the wall: a decoder without players. It owns the event queue below its appliance root and
// draws 25 pictures a second into the frame store, each with a mark. EID_SELECT selects the source of the mark; the mark
// of source S of a decoder is NUMBER + S.
//   wall_decoder NUMBER COLOUR WIDTH HEIGHT [TEXT]     (COLOUR: RRGGBB)
#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame_store.h"

#include <libcommon/display.h>
#include <libcommon/events.h>
#include <libcommon/params.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace {

void follow(std::atomic<int>& source) {
    Event event;
    while (waitEvent(&event) == 0)
        if (event.id == EID_SELECT) {
            source = event.value1;
            ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = event.value1;
        }
}

void draw(screen::FrameStore& store, const screen::PictureShape& shape, std::uint32_t colour,
          FrameMark mark) {
    screen::Drawing drawing = store.draw(shape);
    if (!drawing)
        return;
    for (int y = 0; y < shape.height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(drawing.plane(0) +
                                                     drawing.stride(0) * static_cast<std::size_t>(y));
        std::fill(row, row + shape.width, colour);
    }
    drawFrameMark(drawing.plane(0), shape.width, shape.height, static_cast<int>(drawing.stride(0)), mark);
    drawing.commit(0);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5 || initEventQueue() != 0)
        return 1;
    const int number = std::atoi(argv[1]);
    const auto colour = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 16));
    screen::PictureShape shape;
    shape.width = std::atoi(argv[3]);
    shape.height = std::atoi(argv[4]);
    if (argc > 5)
        osdPrintf(0, 0, "%s", argv[5]);
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 0;
    std::atomic<int> source{0};
    std::thread([&source] { follow(source); }).detach();
    screen::FrameStore store;
    for (unsigned counter = 0;; ++counter) {
        draw(store, shape, colour,
             {static_cast<std::uint8_t>(number + source), static_cast<std::uint16_t>(counter)});
        std::this_thread::sleep_for(std::chrono::milliseconds(40));
    }
}
