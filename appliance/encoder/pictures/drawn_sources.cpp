#include "appliance/encoder/pictures/drawn_sources.h"

#include "appliance/mark/frame_mark.h"

#include <utility>

namespace {

constexpr std::size_t quadInputs = 4;

} // namespace

TestSource::TestSource(const std::string& name, int width, int height, int fps, int mark)
    : DrawnSource(fps), picture_(name, width, height, mark) {
    startDrawing();
}

TestSource::~TestSource() {
    stopDrawing();
}

void TestSource::draw(Picture& picture, std::uint64_t number) {
    picture_.draw(picture, number, fps());
}

QuadSource::QuadSource(std::vector<PictureSource*> inputs, int width, int height, int fps, int mark)
    : DrawnSource(fps), inputs_(std::move(inputs)), width_(width), height_(height), mark_(mark) {
    startDrawing();
}

QuadSource::~QuadSource() {
    stopDrawing();
}

void QuadSource::beginActive() {
    for (std::size_t i = 0; i < inputs_.size() && i < quadInputs; ++i)
        subscriptions_.push_back(std::make_unique<Subscription>(*inputs_[i]));
    shown_.assign(subscriptions_.size(), nullptr);
}

void QuadSource::endActive() {
    subscriptions_.clear();
    shown_.clear();
}

void QuadSource::draw(Picture& picture, std::uint64_t number) {
    picture.resize(width_, height_);
    const int halfWidth = width_ / 2;
    const int halfHeight = height_ / 2;
    for (std::size_t i = 0; i < subscriptions_.size(); ++i) {
        // Waits briefly for an input's first picture, because the view would otherwise begin dark.
        const std::chrono::milliseconds patience(shown_[i] ? 0 : 40);
        if (PicturePtr newer = subscriptions_[i]->next(patience))
            shown_[i] = std::move(newer);
        if (shown_[i])
            drawScaled(*shown_[i], picture, static_cast<int>(i % 2) * halfWidth,
                       static_cast<int>(i / 2) * halfHeight, halfWidth, halfHeight);
    }
    drawFrameMark(picture.bytes.data(), width_, height_, picture.stride(),
                  {static_cast<std::uint8_t>(mark_), static_cast<std::uint16_t>(number)});
}
