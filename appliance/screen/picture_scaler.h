// Scales a part of a picture, with libswscale, without changing its colours or its kind of pixels.
#pragma once

#include "appliance/screen/layout.h"

#include <cstdint>
#include <vector>

struct SwsContext;

namespace screen {

// The memory of a picture whose planes have room behind each row, as the scaler's vector instructions need it.
class PlaneMemory {
public:
    // Makes room for a picture of this format and size; what was there is lost.
    void prepare(PixelFormat format, Size size);

    std::uint8_t* plane(int index) { return start_ + planes_[static_cast<std::size_t>(index)].offset; }
    std::size_t stride(int index) const { return planes_[static_cast<std::size_t>(index)].stride; }
    const PlaneLayout& layout(int index) const { return planes_[static_cast<std::size_t>(index)]; }

    // As a picture; the rest of its shape is taken from `like`.
    PictureView view(const PictureShape& like) const;

private:
    PictureShape shape_;
    PlaneLayouts planes_{};
    std::vector<std::uint8_t> bytes_;
    std::uint8_t* start_ = nullptr; // in `bytes_`, at a multiple of 64
};

// Keeps what it needs for one pair of sizes until other ones come. For one thread at a time.
class PictureScaler {
public:
    PictureScaler() = default;
    PictureScaler(const PictureScaler&) = delete;
    PictureScaler& operator=(const PictureScaler&) = delete;
    ~PictureScaler();

    // Scales the part `from` of the picture to `size`. The result is BGRx for BGRx and I420 for the others, and valid
    // until the next call; its planes are null when there was no memory (logged once).
    PictureView scale(const PictureView& picture, const Rectangle& from, Size size);

private:
    PictureView sourceOf(const PictureView& picture, const Rectangle& from);

    SwsContext* context_ = nullptr;
    PlaneMemory source_; // a copy of the part, where the picture itself can't be read as it is
    PlaneMemory result_;
    bool failed_ = false; // logged
};

} // namespace screen
