#include "bench/screen/key_pictures.h"

#include "bench/screen/pixels.h"

#include <chrono>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>

namespace {

using bench::KeyPictures;
using bench::untilPhase;

bool await(const KeyPictures& keys, double after) {
    for (int i = 0; i < 500 && keys.last().value_or(0) <= after; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return keys.last().value_or(0) > after;
}

// 25 pictures a second, and one key picture.
TEST(KeyPictures, NotesKeyPicturesOnly) {
    const KeyPictures keys(
        "videotestsrc is-live=true ! video/x-raw,format=I420,width=64,height=64,framerate=25/1 ! "
        "avenc_mpeg4 gop-size=25 ! mpeg4videoparse");
    ASSERT_TRUE(await(keys, 0));
    ASSERT_TRUE(await(keys, *keys.last()));
    const double second = *keys.last();
    ASSERT_TRUE(await(keys, second));
    EXPECT_GT(*keys.last() - second, 500);
    EXPECT_LE(*keys.last(), bench::clockMs());
}

TEST(KeyPictures, KnowsNoTimeBeforeTheFirst) {
    const KeyPictures keys("appsrc ! mpegvideoparse");
    EXPECT_FALSE(keys.last());
}

TEST(KeyPictures, RefusesWhatIsNoPipeline) {
    EXPECT_THROW(KeyPictures("nosuchelement"), std::runtime_error);
}

// The moment itself, and not only that it is late enough.
TEST(KeyPictures, WaitsUntilThePart) {
    EXPECT_DOUBLE_EQ(untilPhase(10'000, 9'900, 1000, 500, 300), 400);  // of this period
    EXPECT_DOUBLE_EQ(untilPhase(10'000, 9'900, 1000, 100, 300), 1000); // its part is over
    EXPECT_DOUBLE_EQ(untilPhase(10'000, 9'900, 1000, 399, 300), 1299); // too soon
    EXPECT_DOUBLE_EQ(untilPhase(10'000, 9'900, 1000, 400, 300), 300);
    EXPECT_DOUBLE_EQ(untilPhase(10'000, 3'900, 1000, 400, 300), 300) << "an old one";
}

} // namespace
