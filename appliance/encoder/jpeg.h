// JPEG pictures of a source, made when somebody asks and shared by all who ask for the same.
#pragma once

#include "appliance/encoder/picture.h"

#include <deque>
#include <memory>
#include <mutex>
#include <string>

using JpegPtr = std::shared_ptr<const std::string>;

struct JpegForm {
    int width; // the picture is scaled to this size
    int height;
    int quality; // 1 to 100

    bool operator==(const JpegForm&) const = default;
};

// One per source. Safe on any thread; threads that ask for the same picture in the same form wait for one of
// them to make it.
class JpegMaker {
public:
    // Null when the picture cannot be encoded (out of memory).
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

// Encodes one picture as it is; null when that fails.
JpegPtr encodeJpeg(const Picture& picture, int quality);
