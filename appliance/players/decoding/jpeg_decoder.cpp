#include "appliance/players/decoding/jpeg_decoder.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio> // jpeglib.h needs FILE
#include <utility>
#include <vector>

#include <jpeglib.h>

namespace player {
namespace {

constexpr int components = 3;
constexpr std::uint8_t noColour = 128;
constexpr int mostRows = 4 * 2 * DCTSIZE; // rows of a component that one call can return

// A decoded component, with room for whole blocks.
struct Plane {
    std::vector<std::uint8_t> bytes;
    int width = 0; // visible
    int height = 0;
    std::size_t stride = 0;
    int rowsInCall = 0;

    const std::uint8_t* row(int y) const { return bytes.data() + static_cast<std::size_t>(y) * stride; }
};

int halved(int size) {
    return (size + 1) / 2;
}

// For each column or row of a half-size plane the two of `from` that are nearest to it, where `from` of them cover
// `full` pixels.
std::vector<std::pair<int, int>> sourcesOf(int full, int from) {
    std::vector<std::pair<int, int>> sources;
    const int perSample = std::max(1, (full + from - 1) / from);
    for (int i = 0; i < halved(full); ++i)
        sources.emplace_back(std::min(2 * i / perSample, from - 1),
                             std::min((2 * i + 1) / perSample, from - 1));
    return sources;
}

// Brings a plane of colour to half the picture's width and height.
void halve(const Plane& from, int fullWidth, int fullHeight, Plane& to) {
    to.width = halved(fullWidth);
    to.height = halved(fullHeight);
    to.stride = static_cast<std::size_t>(to.width);
    to.bytes.resize(to.stride * static_cast<std::size_t>(to.height));
    const auto columns = sourcesOf(fullWidth, from.width);
    const auto rows = sourcesOf(fullHeight, from.height);
    for (int y = 0; y < to.height; ++y) {
        const auto& [upperRow, lowerRow] = rows[static_cast<std::size_t>(y)];
        const std::uint8_t* upper = from.row(upperRow);
        const std::uint8_t* lower = from.row(lowerRow);
        std::uint8_t* out = to.bytes.data() + static_cast<std::size_t>(y) * to.stride;
        for (const auto& [left, right] : columns)
            *out++ =
                static_cast<std::uint8_t>((upper[left] + upper[right] + lower[left] + lower[right] + 2) >> 2);
    }
}

} // namespace

struct JpegDecoder::State {
    // libjpeg reports an error by a call that must not return.
    struct Errors : jpeg_error_mgr {
        std::jmp_buf back;
    };

    jpeg_decompress_struct decoder{};
    Errors errors{};
    std::array<Plane, components> decoded;
    std::array<Plane, components> converted; // of colour only
    std::vector<std::uint8_t> rgb;           // a row, for pictures in colours
    bool refused = false;                    // a picture was refused; logged once

    bool refuse(const char* why) {
        if (!std::exchange(refused, true))
            logmsg(3, "JPEG pictures of %ux%u can't be shown: %s", decoder.image_width, decoder.image_height,
                   why);
        return false;
    }
    bool isAccepted();
    void prepare();
    void readPlanes();
    void readRgb();
    bool read(std::string_view jpeg);
    screen::PictureView view();
};

bool JpegDecoder::State::isAccepted() {
    const int side = static_cast<int>(std::max(decoder.image_width, decoder.image_height));
    if (side > maxJpegSide)
        return refuse("a side is longer than 8192 pixels");
    // A progressive picture is kept as a whole in memory while it is decoded.
    if (decoder.progressive_mode != 0 && side > screen::maxPictureSide)
        return refuse("a side of a progressive picture is longer than 4096 pixels");
    switch (decoder.jpeg_color_space) {
    case JCS_GRAYSCALE:
    case JCS_YCbCr:
    case JCS_RGB:
        break;
    default:
        return refuse("its colours are not those of a camera");
    }
    decoder.scale_denom = side > screen::maxPictureSide ? 2 : 1;
    decoder.dct_method = JDCT_ISLOW;
    decoder.do_fancy_upsampling = FALSE;
    decoder.raw_data_out = decoder.jpeg_color_space == JCS_RGB ? FALSE : TRUE;
    decoder.out_color_space = decoder.jpeg_color_space;
    return true;
}

// Makes room for whole blocks of each component. Called after jpeg_start_decompress().
void JpegDecoder::State::prepare() {
    const auto calls = static_cast<std::size_t>(decoder.total_iMCU_rows);
    for (int i = 0; i < decoder.num_components && i < components; ++i) {
        const jpeg_component_info& info = decoder.comp_info[i];
        Plane& plane = decoded[static_cast<std::size_t>(i)];
        plane.width = static_cast<int>(info.downsampled_width);
        plane.height = static_cast<int>(info.downsampled_height);
        plane.stride =
            static_cast<std::size_t>(info.width_in_blocks) * static_cast<std::size_t>(info.DCT_scaled_size);
        plane.rowsInCall = info.v_samp_factor * info.DCT_scaled_size;
        plane.bytes.resize(plane.stride * calls * static_cast<std::size_t>(plane.rowsInCall));
    }
}

void JpegDecoder::State::readPlanes() {
    const int planes = std::min(decoder.num_components, components);
    const int rows = decoder.max_v_samp_factor * decoder.min_DCT_scaled_size;
    for (int call = 0; decoder.output_scanline < decoder.output_height; ++call) {
        std::array<std::array<JSAMPROW, mostRows>, components> pointers;
        std::array<JSAMPARRAY, components> arrays{};
        for (std::size_t i = 0; i < static_cast<std::size_t>(planes); ++i) {
            Plane& plane = decoded[i];
            for (int row = 0; row < plane.rowsInCall; ++row)
                pointers[i][static_cast<std::size_t>(row)] =
                    const_cast<JSAMPROW>(plane.row(call * plane.rowsInCall + row));
            arrays[i] = pointers[i].data();
        }
        jpeg_read_raw_data(&decoder, arrays.data(), static_cast<JDIMENSION>(rows));
    }
}

// Pictures in red, green and blue are rare: converted row by row to planes of full size.
void JpegDecoder::State::readRgb() {
    const int width = static_cast<int>(decoder.output_width);
    const int height = static_cast<int>(decoder.output_height);
    for (Plane& plane : decoded) {
        plane.width = width;
        plane.height = height;
        plane.stride = static_cast<std::size_t>(width);
        plane.bytes.resize(plane.stride * static_cast<std::size_t>(height));
    }
    rgb.resize(std::size_t{3} * static_cast<std::size_t>(width));
    while (decoder.output_scanline < decoder.output_height) {
        const std::size_t at = decoder.output_scanline * decoded[0].stride;
        JSAMPROW row = rgb.data();
        jpeg_read_scanlines(&decoder, &row, 1);
        for (std::size_t x = 0; x < decoded[0].stride; ++x) {
            const int r = rgb[3 * x];
            const int g = rgb[3 * x + 1];
            const int b = rgb[3 * x + 2];
            decoded[0].bytes[at + x] = static_cast<std::uint8_t>((77 * r + 150 * g + 29 * b + 128) >> 8);
            decoded[1].bytes[at + x] = static_cast<std::uint8_t>((-43 * r - 85 * g + 128 * b + 32'767) >> 8);
            decoded[2].bytes[at + x] = static_cast<std::uint8_t>((128 * r - 107 * g - 21 * b + 32'767) >> 8);
        }
    }
}

// Nothing here may own memory when libjpeg jumps back: all of it belongs to the State.
bool JpegDecoder::State::read(std::string_view jpeg) {
    if (setjmp(errors.back) != 0) {
        jpeg_abort_decompress(&decoder);
        return false;
    }
    jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(jpeg.data()), jpeg.size());
    if (jpeg_read_header(&decoder, TRUE) != JPEG_HEADER_OK || !isAccepted()) {
        jpeg_abort_decompress(&decoder);
        return false;
    }
    jpeg_start_decompress(&decoder);
    if (decoder.raw_data_out != FALSE) {
        prepare();
        readPlanes();
    } else {
        readRgb();
    }
    jpeg_finish_decompress(&decoder);
    return true;
}

screen::PictureView JpegDecoder::State::view() {
    screen::PictureView view;
    view.shape.width = static_cast<int>(decoder.output_width);
    view.shape.height = static_cast<int>(decoder.output_height);
    view.shape.format = screen::PixelFormat::i420;
    view.shape.fullRange = true;
    view.plane[0] = decoded[0].bytes.data();
    view.stride[0] = decoded[0].stride;
    for (std::size_t i = 1; i < components; ++i) {
        const Plane* colour = &decoded[i];
        if (decoder.jpeg_color_space == JCS_GRAYSCALE) {
            converted[i].stride = static_cast<std::size_t>(halved(view.shape.width));
            converted[i].bytes.assign(
                converted[i].stride * static_cast<std::size_t>(halved(view.shape.height)), noColour);
            colour = &converted[i];
        } else if (colour->width != halved(view.shape.width) || colour->height != halved(view.shape.height)) {
            halve(decoded[i], view.shape.width, view.shape.height, converted[i]);
            colour = &converted[i];
        }
        view.plane[i] = colour->bytes.data();
        view.stride[i] = colour->stride;
    }
    return view;
}

JpegDecoder::JpegDecoder() : state_(std::make_unique<State>()) {
    state_->decoder.err = jpeg_std_error(&state_->errors);
    state_->errors.error_exit = [](j_common_ptr decoder) {
        std::longjmp(static_cast<State::Errors*>(decoder->err)->back, 1);
    };
    state_->errors.output_message = [](j_common_ptr /*decoder*/) {};
    jpeg_create_decompress(&state_->decoder);
}

JpegDecoder::~JpegDecoder() {
    jpeg_destroy_decompress(&state_->decoder);
}

std::optional<screen::PictureView> JpegDecoder::decode(std::string_view jpeg) {
    if (!state_->read(jpeg))
        return std::nullopt;
    return state_->view();
}

} // namespace player
