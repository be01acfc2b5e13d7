// JPEG pictures of a source, made on request and shared by all clients that want the same form.
#pragma once

#include "appliance/encoder/pictures/raw_picture.h"
#include "appliance/jpeg/jpeg.h"

#include <deque>
#include <mutex>

struct JpegForm {
    int width; // the picture is scaled to this size
    int height;
    int quality; // 1 to 100

    bool operator==(const JpegForm&) const = default;
};

// One per source. Any thread. When several threads want the same picture in the same form, one of them makes it and
// the others wait for it.
class JpegMaker {
public:
    // Null if the picture cannot be encoded (out of memory).
    JpegPtr jpegOf(const PicturePtr& picture, const JpegForm& form);

private:
    struct Made {
        std::uint64_t number;
        JpegForm form;
        JpegPtr jpeg;
    };
    std::mutex mutex_;
    std::deque<Made> made_; // the newest few
};
