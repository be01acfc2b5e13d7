// Writes test pictures with the frame mark to standard output, four bytes for each pixel (blue first), for an encoder to
// read: marked_pictures WIDTH HEIGHT COUNT SOURCE. A bright square moves over a
// ramp with the noise of a camera. The mark has the number SOURCE
// and counts the pictures from 0.
#include "appliance/mark/frame_mark.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

// Moves from one side to the other and back; `range` is at least 1.
int swing(int step, int range) {
    const int place = step % (2 * range);
    return place < range ? place : 2 * range - place;
}

class Canvas {
public:
    Canvas(int width, int height)
        : bytes(4 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height)), width_(width),
          height_(height) {}

    void fill(int x, int y, int red, int green, int blue) {
        std::uint8_t* pixel = &bytes[4 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                                          static_cast<std::size_t>(x))];
        pixel[0] = static_cast<std::uint8_t>(blue);
        pixel[1] = static_cast<std::uint8_t>(green);
        pixel[2] = static_cast<std::uint8_t>(red);
    }

    // From -8 to 8, for 4x4 pixels, and other ones in each picture; the same in each run.
    static int noise(int x, int y, int number) {
        std::uint32_t value =
            static_cast<std::uint32_t>(x / 4 + 997 * (y / 4) + 65537 * number) * 2654435761U;
        value ^= value >> 15;
        return static_cast<int>(value * 2246822519U >> 24) % 17 - 8;
    }

    void draw(int number) {
        const int side = std::max(8, height_ / 5);
        const int left = swing(4 * number, std::max(1, width_ - side));
        const int top = swing(3 * number, std::max(1, height_ * 9 / 10 - side));
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x) {
                const bool inside = x >= left && x < left + side && y >= top && y < top + side;
                const int ramp = 40 + 150 * x / width_ + noise(x, y, number);
                if (inside)
                    fill(x, y, 230, 180, 60);
                else
                    fill(x, y, ramp, ramp, 40 + 150 * y / height_);
            }
        }
    }

    std::vector<std::uint8_t> bytes;

private:
    int width_;
    int height_;
};

} // namespace

int main(int argc, char** argv) {
    const int width = argc == 5 ? std::atoi(argv[1]) : 0;
    const int height = argc == 5 ? std::atoi(argv[2]) : 0;
    if (width < 64 || width > 4096 || height < 40 || height > 4096) {
        std::fputs("usage: marked_pictures WIDTH HEIGHT COUNT SOURCE, from 64x40 to 4096x4096\n", stderr);
        return 2;
    }
    const int count = std::atoi(argv[3]);
    const auto source = static_cast<std::uint8_t>(std::atoi(argv[4]));
    Canvas canvas(width, height);
    for (int number = 0; number < count; ++number) {
        canvas.draw(number);
        drawFrameMark(canvas.bytes.data(), width, height, 4 * width,
                      {source, static_cast<std::uint16_t>(number)});
        if (std::fwrite(canvas.bytes.data(), 1, canvas.bytes.size(), stdout) != canvas.bytes.size())
            return 1;
    }
    return 0;
}
