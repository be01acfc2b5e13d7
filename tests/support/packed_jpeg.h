// JPEG pictures for tests, made with libjpeg. Who includes it links libjpeg.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include <jpeglib.h>

namespace packing {

struct JpegRows {
    int width = 0;
    int height = 0;
    int components = 3; // bytes of a pixel
    J_COLOR_SPACE space = JCS_RGB;
    std::function<const unsigned char*(int y)> row; // valid until the next call
};

// `set` changes libjpeg's usual settings: quality, samples, progression.
inline std::string packedJpeg(const JpegRows& rows, const std::function<void(jpeg_compress_struct&)>& set) {
    jpeg_compress_struct encoder{};
    jpeg_error_mgr errors{};
    encoder.err = jpeg_std_error(&errors);
    jpeg_create_compress(&encoder);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&encoder, &out, &size);
    encoder.image_width = static_cast<JDIMENSION>(rows.width);
    encoder.image_height = static_cast<JDIMENSION>(rows.height);
    encoder.input_components = rows.components;
    encoder.in_color_space = rows.space;
    jpeg_set_defaults(&encoder);
    set(encoder);
    jpeg_start_compress(&encoder, TRUE);
    while (encoder.next_scanline < encoder.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(rows.row(static_cast<int>(encoder.next_scanline)));
        jpeg_write_scanlines(&encoder, &row, 1);
    }
    jpeg_finish_compress(&encoder);
    std::string jpeg(reinterpret_cast<const char*>(out), size);
    jpeg_destroy_compress(&encoder);
    std::free(out);
    return jpeg;
}

} // namespace packing
