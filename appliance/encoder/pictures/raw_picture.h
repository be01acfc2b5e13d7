// An uncompressed picture between an input and the codecs: 32 bits a pixel, blue first, the fourth byte unused.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct Picture {
    int width = 0;
    int height = 0;
    std::uint64_t number = 0; // counts up from 1 in each source
    std::int64_t time = 0;    // when it was taken: steady clock, nanoseconds
    std::vector<std::uint8_t> bytes;

    int stride() const { return width * 4; }
    std::uint8_t* row(int y) { return bytes.data() + static_cast<std::size_t>(y) * width * 4; }
    const std::uint8_t* row(int y) const { return bytes.data() + static_cast<std::size_t>(y) * width * 4; }
    void resize(int w, int h) {
        width = w;
        height = h;
        bytes.resize(static_cast<std::size_t>(w) * h * 4);
    }
};

using PicturePtr = std::shared_ptr<const Picture>;

// Draws `from`, scaled, into the rectangle of `to` at (left, top). The rectangle must be inside `to`.
void drawScaled(const Picture& from, Picture& to, int left, int top, int width, int height);
