#include "appliance/encoder/codecs/jpeg.h"

#include <csetjmp>
#include <cstdio> // jpeglib.h needs FILE
#include <cstdlib>
#include <jpeglib.h>

namespace {

constexpr std::size_t keptPictures = 8; // a few forms of the last two pictures

struct ErrorJump {
    jpeg_error_mgr manager; // the first member: the library returns a pointer to it
    jmp_buf target;
};

[[noreturn]] void jump(j_common_ptr info) {
    longjmp(reinterpret_cast<ErrorJump*>(info->err)->target, 1);
}

void keepQuiet(j_common_ptr /*info*/) {}

// No variable here has a destructor, because the library's errors leave this function by longjmp().
bool compress(const Picture& picture, int quality, unsigned char*& data, unsigned long& size) {
    ErrorJump errors;
    jpeg_compress_struct info{};
    info.err = jpeg_std_error(&errors.manager);
    errors.manager.error_exit = jump;
    errors.manager.output_message = keepQuiet;
    if (setjmp(errors.target) != 0) { // NOLINT(bugprone-unsafe-functions)
        jpeg_destroy_compress(&info);
        return false;
    }
    jpeg_create_compress(&info);
    jpeg_mem_dest(&info, &data, &size);
    info.image_width = static_cast<JDIMENSION>(picture.width);
    info.image_height = static_cast<JDIMENSION>(picture.height);
    info.input_components = 4;
    info.in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(&info);
    info.dct_method = JDCT_FASTEST;
    jpeg_set_quality(&info, quality, TRUE);
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<std::uint8_t*>(picture.row(static_cast<int>(info.next_scanline)));
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return true;
}

} // namespace

JpegPtr encodeJpeg(const Picture& picture, int quality) {
    unsigned char* data = nullptr;
    unsigned long size = 0;
    JpegPtr jpeg;
    if (compress(picture, quality, data, size))
        jpeg = std::make_shared<const std::string>(reinterpret_cast<const char*>(data), size);
    std::free(data);
    return jpeg;
}

JpegPtr JpegMaker::jpegOf(const PicturePtr& picture, const JpegForm& form) {
    const std::lock_guard lock(mutex_);
    for (const Made& made : made_) {
        if (made.number == picture->number && made.form == form)
            return made.jpeg;
    }
    JpegPtr jpeg;
    if (form.width == picture->width && form.height == picture->height) {
        jpeg = encodeJpeg(*picture, form.quality);
    } else {
        Picture scaled;
        scaled.resize(form.width, form.height);
        drawScaled(*picture, scaled, 0, 0, form.width, form.height);
        jpeg = encodeJpeg(scaled, form.quality);
    }
    made_.push_back({picture->number, form, jpeg});
    if (made_.size() > keptPictures)
        made_.pop_front();
    return jpeg;
}
