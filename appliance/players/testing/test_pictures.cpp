#include "appliance/players/testing/test_pictures.h"

#include "appliance/mark/frame_mark.h"
#include "tests/support/packed_jpeg.h"

#include <memory>
#include <thread>
#include <utility>
#include <vector>

namespace player {
namespace {

using Pixels = std::vector<std::uint8_t>; // BGRx

std::string jpegOf(const Pixels& pixels, int width, int height) {
    const std::size_t stride = std::size_t{4} * static_cast<std::size_t>(width);
    return packing::packedJpeg(
        {.width = width,
         .height = height,
         .components = 4,
         .space = JCS_EXT_BGRX,
         .row = [&](int y) { return pixels.data() + stride * static_cast<std::size_t>(y); }},
        [](jpeg_compress_struct& encoder) { jpeg_set_quality(&encoder, 80, TRUE); });
}

} // namespace

std::string jpegPicture(int source, int counter, int width, int height, int noise) {
    Pixels pixels(std::size_t{4} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    auto random = static_cast<std::uint32_t>(noise < 0 ? counter * 7919 + source : noise);
    for (std::size_t i = 0; i < pixels.size(); i += 64) { // larger blocks compress as in real pictures
        random = random * 1664525 + 1013904223;
        for (std::size_t at = i; at < i + 64; ++at)
            pixels[at] = static_cast<std::uint8_t>((random >> (8 * (at % 4))) & 0x7f);
    }
    drawFrameMark(pixels.data(), width, height, 4 * width,
                  {static_cast<std::uint8_t>(source), static_cast<std::uint16_t>(counter)});
    return jpegOf(pixels, width, height);
}

std::string quarteredJpeg(int width, int height) {
    // The two kinds of rows, once each: the largest picture has 33 million pixels.
    const auto row = [width](std::uint32_t left, std::uint32_t right) {
        Pixels pixels;
        for (int x = 0; x < width; ++x)
            for (const int shift : {0, 8, 16, 24})
                pixels.push_back(static_cast<std::uint8_t>((x < width / 2 ? left : right) >> shift));
        return pixels;
    };
    const Pixels upper = row(0xff0000U, 0x00ff00U);
    const Pixels lower = row(0x0000ffU, 0xffffffU);
    Pixels pixels;
    pixels.reserve(upper.size() * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y) {
        const Pixels& next = y < height / 2 ? upper : lower;
        pixels.insert(pixels.end(), next.begin(), next.end());
    }
    return jpegOf(pixels, width, height);
}

std::string part(const std::string& body) {
    return "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body +
           "\r\n--next\r\n";
}

scripted::Step later(std::string bytes, std::chrono::milliseconds time) {
    return scripted::answer([bytes = std::move(bytes), time](const std::string& /*request*/) {
        std::this_thread::sleep_for(time);
        return bytes;
    });
}

scripted::Script pictureStream(int source, int count, int first, int width, int height) {
    scripted::Script script{scripted::readRequest(), scripted::send(multipartHeader)};
    script.push_back(scripted::send(part(jpegPicture(source, first, width, height))));
    // Pictures are sent at fixed times, because the time to make them would add up. Each connection has its own.
    const auto next = std::make_shared<std::chrono::steady_clock::time_point>();
    for (int i = 1; i < count; ++i)
        script.push_back(scripted::answer([=](const std::string& /*request*/) {
            const auto now = std::chrono::steady_clock::now();
            *next = i == 1 || *next + pictureTime < now ? now + pictureTime : *next + pictureTime;
            std::string picture = part(jpegPicture(source, first + i, width, height));
            std::this_thread::sleep_until(*next);
            return picture;
        }));
    return script;
}

} // namespace player
