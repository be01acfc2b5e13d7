// The picture sources that are drawn: test pictures and the quad view.
#pragma once

#include "appliance/encoder/pictures/picture_source.h"
#include "appliance/encoder/pictures/test_picture.h"

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

// The first four inputs in one picture, two by two, at a steady rate. The place of an input that is missing, or has no
// picture yet, is dark. It has its own frame mark, over the whole width.
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
    std::vector<std::unique_ptr<Subscription>> subscriptions_; // only while there are readers
    std::vector<PicturePtr> shown_;
};
