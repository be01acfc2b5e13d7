// The three kinds of picture sources.
#pragma once

#include "appliance/encoder/picture_source.h"
#include "appliance/encoder/test_picture.h"

#include <memory>
#include <string>
#include <vector>

class TestSource : public DrawnSource {
public:
    TestSource(const std::string& name, int width, int height, int fps, int mark);
    ~TestSource() override;

private:
    void draw(Picture& picture, std::uint64_t number) override;

    TestPicture picture_;
};

// The first four inputs in one picture, two by two, at a steady rate. Where there are fewer, the rest is
// dark; an input that has given nothing yet, too. It has a frame mark of its own, over the whole width.
class QuadSource : public DrawnSource {
public:
    // The inputs must outlive it.
    QuadSource(std::vector<PictureSource*> inputs, int width, int height, int fps, int mark);
    ~QuadSource() override;

private:
    void draw(Picture& picture, std::uint64_t number) override;
    void beginActive() override;
    void endActive() override;

    const std::vector<PictureSource*> inputs_;
    const int width_;
    const int height_;
    const int mark_;
    std::vector<std::unique_ptr<Subscription>> subscriptions_; // only while somebody reads
    std::vector<PicturePtr> shown_;
};
