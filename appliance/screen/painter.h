// Draws a look on the CPU: the picture in its place, black bars around it, and the overlays in front.
//
// A picture that is placed one to one is only converted, with the exact colours of its matrix and range. Others are
// scaled before that. For one thread at a time.
#pragma once

#include "appliance/screen/look.h"
#include "appliance/screen/picture.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace screen {

class Painter {
public:
    Painter();
    Painter(Painter&&) noexcept;
    ~Painter();

    // Paints the look into `out`, whose memory is used again. `picture` is the frame that the look is of; null: none
    // is visible. A picture of another shape than the look's, or of one with a fault, is not drawn either. The picture
    // may change while it is read, so that a result of no use comes out, but no access ends outside its planes.
    void paint(const PictureView* picture, const Look& look, Picture& out);

    // The same into the caller's memory, such as a window's: look.screen.size pixels, 0x00RRGGBB. `strideBytes` is the
    // distance between two rows, a multiple of 4.
    void paint(const PictureView* picture, const Look& look, std::uint32_t* pixels, std::size_t strideBytes);

private:
    class Work;
    std::unique_ptr<Work> work_;
};

} // namespace screen
