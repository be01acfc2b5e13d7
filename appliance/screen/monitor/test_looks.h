// Test pictures for the back ends: with them the probe and the tests compare what two back ends draw.
#pragma once

#include "appliance/screen/monitor/back_end.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace screen {

// A look with a picture of soft gradients in all colours and one overlay. One thread.
class TestLook {
public:
    // A screen of that size, with a picture of the same size.
    TestLook(Size screen, PixelFormat format);
    // A picture of any shape, fitted into the screen.
    TestLook(Size screen, const PictureShape& shape, Fit fit);
    TestLook(const TestLook&) = delete;
    TestLook& operator=(const TestLook&) = delete;

    // The next frame, with another picture.
    void next();

    Look& look() { return look_; }
    Part part(); // in the upper left of the window; valid as long as this object
    PictureView view() const;

    // The same, drawn by the painter: 0x00RRGGBB.
    std::vector<std::uint32_t> painted() const;

private:
    void fill();

    Look look_;
    std::vector<std::uint8_t> bytes_;
    std::vector<OverlayImage> overlays_;
    int step_ = 0;
};

// The mean difference of the colours of two pictures of the same size, of 255; 255 for pictures of different sizes.
double meanDifference(const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b);

// The share of pixels with a colour that differs by more than `limit`, 0 to 1.
double shareAbove(int limit, const std::vector<std::uint32_t>& a, const std::vector<std::uint32_t>& b);

} // namespace screen
