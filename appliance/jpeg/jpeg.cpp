#include "appliance/jpeg/jpeg.h"

#include <csetjmp>
#include <cstdio> // jpeglib.h needs FILE
#include <cstdlib>
#include <jpeglib.h>

namespace {

constexpr std::size_t pixelSize = 4; // bytes

struct ErrorJump {
    jpeg_error_mgr manager; // the first member: the library returns a pointer to it
    jmp_buf target;
};

[[noreturn]] void jump(j_common_ptr info) {
    longjmp(reinterpret_cast<ErrorJump*>(info->err)->target, 1);
}

void keepQuiet(j_common_ptr /*info*/) {}

struct Picture {
    const std::byte* pixels;
    int width;
    int height;
};

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
        const std::byte* pixels = picture.pixels + std::size_t{info.next_scanline} *
                                                       static_cast<std::size_t>(picture.width) * pixelSize;
        JSAMPROW row = reinterpret_cast<JSAMPROW>(const_cast<std::byte*>(pixels));
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return true;
}

} // namespace

JpegPtr encodeJpeg(std::span<const std::byte> pixels, int width, int height, int quality) {
    if (width <= 0 || height <= 0 ||
        pixels.size() < static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * pixelSize)
        return nullptr;
    unsigned char* data = nullptr;
    unsigned long size = 0;
    JpegPtr jpeg;
    if (compress({pixels.data(), width, height}, quality, data, size))
        jpeg = std::make_shared<const std::string>(reinterpret_cast<const char*>(data), size);
    std::free(data);
    return jpeg;
}
