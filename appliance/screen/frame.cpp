#include "appliance/screen/frame.h"

namespace screen {

PictureView Frame::view() const {
    if (faultOf(shape) == nullptr && bytes.size() >= bytesOf(shape))
        return viewOf(shape, bytes.data());
    PictureView view;
    view.shape = shape;
    return view;
}

} // namespace screen
