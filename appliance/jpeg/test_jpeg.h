// For tests: decodes a JPEG picture.
#pragma once

#include <cstdint>
#include <cstdio> // jpeglib.h needs FILE
#include <jpeglib.h>
#include <string>
#include <vector>

struct DecodedJpeg {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> bgrx;
};

// A broken picture ends the test program, with the library's message.
inline DecodedJpeg decodeJpeg(const std::string& jpeg) {
    jpeg_error_mgr errors;
    jpeg_decompress_struct info{};
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_EXT_BGRX;
    jpeg_start_decompress(&info);
    DecodedJpeg decoded;
    decoded.width = static_cast<int>(info.output_width);
    decoded.height = static_cast<int>(info.output_height);
    const std::size_t stride = std::size_t{info.output_width} * 4;
    decoded.bgrx.resize(stride * info.output_height);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = &decoded.bgrx[info.output_scanline * stride];
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return decoded;
}
