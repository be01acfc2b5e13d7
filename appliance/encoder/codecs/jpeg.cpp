#include "appliance/encoder/codecs/jpeg.h"

#include <cstddef>
#include <span>

namespace {

constexpr std::size_t keptPictures = 8; // a few forms of the last two pictures

JpegPtr jpegOf(const Picture& picture, int quality) {
    return encodeJpeg(std::as_bytes(std::span(picture.bytes)), picture.width, picture.height, quality);
}

} // namespace

JpegPtr JpegMaker::jpegOf(const PicturePtr& picture, const JpegForm& form) {
    const std::lock_guard lock(mutex_);
    for (const Made& made : made_) {
        if (made.number == picture->number && made.form == form)
            return made.jpeg;
    }
    JpegPtr jpeg;
    if (form.width == picture->width && form.height == picture->height) {
        jpeg = ::jpegOf(*picture, form.quality);
    } else {
        Picture scaled;
        scaled.resize(form.width, form.height);
        drawScaled(*picture, scaled, 0, 0, form.width, form.height);
        jpeg = ::jpegOf(scaled, form.quality);
    }
    made_.push_back({picture->number, form, jpeg});
    if (made_.size() > keptPictures)
        made_.pop_front();
    return jpeg;
}
