// Pictures of every shape, and the store's growth.
#include "appliance/screen/frame_store_fixture.h"
#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace screen {
namespace {

constexpr std::array allFormats{PixelFormat::bgrx, PixelFormat::i420, PixelFormat::nv12};

// A shape whose picture takes that many pages: one for each row.
PictureShape pagesHigh(int pages) {
    PictureShape shape;
    shape.width = 1024;
    shape.height = pages;
    shape.format = PixelFormat::bgrx;
    return shape;
}
constexpr int smallestPages = 405; // of a slot of the smallest store

class FrameStoreGrowth : public FrameStoreFixture {
protected:
    std::uint64_t fileSize() const { return fs::file_size(path); }
    ino_t inode() const {
        struct stat info {};
        EXPECT_EQ(stat(path.c_str(), &info), 0);
        return info.st_ino;
    }
};

TEST_F(FrameStoreGrowth, PicturesOfEveryShapeAreReadBack) {
    FrameStore writer(path);
    FrameStore reader(path);
    int seed = 0;
    for (const auto& [width, height] : {std::pair{1, 1},
                                        {2, 2},
                                        {3, 1},
                                        {1, 7},
                                        {719, 575},
                                        {352, 288},
                                        {480, 640},
                                        {1281, 719},
                                        {1080, 1920}})
        for (const PixelFormat format : allFormats) {
            PictureShape shape = shaped(width, height, format);
            shape.aspectNumerator = 64 + seed;
            shape.aspectDenominator = 45;
            shape.matrix = seed % 2 == 0 ? ColourMatrix::bt601 : ColourMatrix::bt709;
            shape.fullRange = seed % 3 == 0;
            shape.turn = static_cast<Turn>(seed % 4);
            const FrameInfo info = drawSeeded(writer, shape, ++seed);
            ASSERT_EQ(info.number, static_cast<std::uint64_t>(seed));
            Frame frame;
            ASSERT_TRUE(reader.newest(frame));
            EXPECT_EQ(frame.info, info);
            EXPECT_EQ(frame.shape, shape);
            EXPECT_EQ(frame.bytes.size(), bytesOf(shape));
            EXPECT_TRUE(isWhole(frame)) << width << "x" << height;
        }
}

TEST_F(FrameStoreGrowth, LargestPictureIsReadBack) {
    FrameStore store(path);
    const PictureShape shape = shaped(maxPictureSide, maxPictureSide);
    drawSeeded(store, shape, 3);
    EXPECT_TRUE(store.visitNewest([&](const PictureView& picture, const FrameInfo& info) {
        EXPECT_EQ(picture.shape, shape);
        EXPECT_TRUE(isWhole(picture, info.source));
    }));
}

TEST_F(FrameStoreGrowth, FinishedPicturesAreTakenByTheirStride) {
    FrameStore store(path);
    for (const PixelFormat format : allFormats)
        for (const std::size_t more : {0U, 1U, 13U, 64U}) {
            const PictureShape shape = shaped(353, 287, format);
            // Each plane in memory of exactly its size, so that reading too far is found by the sanitizer.
            std::array<std::vector<std::uint8_t>, 3> planes;
            PictureView view;
            view.shape = shape;
            const PlaneLayouts layouts = planesOf(shape);
            for (std::size_t i = 0; i < 3 && layouts[i].rows > 0; ++i) {
                const std::size_t stride = more == 64 ? layouts[i].stride : layouts[i].rowBytes + more;
                planes[i].resize(stride * static_cast<std::size_t>(layouts[i].rows - 1) +
                                 layouts[i].rowBytes);
                for (int row = 0; row < layouts[i].rows; ++row)
                    std::memcpy(planes[i].data() + static_cast<std::size_t>(row) * stride, rowOf(9, i, row),
                                layouts[i].rowBytes);
                view.plane[i] = planes[i].data();
                view.stride[i] = stride;
            }
            ASSERT_NE(store.draw(view, 9).number, 0U);
            Frame frame;
            ASSERT_TRUE(store.newest(frame));
            EXPECT_TRUE(isWhole(frame)) << more;
        }
}

TEST_F(FrameStoreGrowth, CopyHasNoRestOfEarlierPicturesBetweenItsRows) {
    FrameStore store(path);
    for (int i = 0; i < 8; ++i)
        drawSeeded(store, televisionShape(VideoMode::pal), i);
    drawSeeded(store, shaped(33, 65), 9);
    Frame frame;
    ASSERT_TRUE(store.newest(frame));
    for (const PlaneLayout& plane : planesOf(frame.shape))
        for (int row = 0; row < plane.rows; ++row)
            for (std::size_t x = plane.rowBytes; x < plane.stride; ++x)
                ASSERT_EQ(frame.bytes[plane.offset + static_cast<std::size_t>(row) * plane.stride + x], 0);
}

TEST_F(FrameStoreGrowth, UnusableShapesAndViewsAreRefusedAndCostNothing) {
    FrameStore store(path);
    EXPECT_FALSE(store.draw(PictureShape{}));
    EXPECT_FALSE(store.draw(shaped(maxPictureSide + 1, 16)));
    EXPECT_FALSE(store.reserve(shaped(16, -1)));
    EXPECT_EQ(store.draw(PictureView{}, 0).number, 0U);
    EXPECT_FALSE(fs::exists(path));
    EXPECT_EQ(drawSeeded(store, shaped(16, 16), 1).number, 1U) << "a refusal cost a number or kept the lock";
}

TEST_F(FrameStoreGrowth, EmptyFrameHasAnEmptyView) {
    Frame frame;
    EXPECT_EQ(frame.view().plane[0], nullptr);
    frame.shape = shaped(16, 16);
    EXPECT_EQ(frame.view().plane[0], nullptr) << "a shape without bytes";
}

TEST_F(FrameStoreGrowth, SmallestStoreTakesStandardAndHdReadyPictures) {
    FrameStore store(path);
    ASSERT_TRUE(store.setMode(VideoMode::pal));
    const std::uint64_t size = fileSize();
    EXPECT_EQ(size, smallestStoreFile());
    EXPECT_LT(size, 6'700'000U) << "as the header says";
    const ino_t file = inode();
    drawSeeded(store, televisionShape(VideoMode::pal), 1);
    drawSeeded(store, shaped(1280, 720, PixelFormat::nv12), 2);
    EXPECT_EQ(inode(), file);
}

TEST_F(FrameStoreGrowth, SizesAreThoseOfTheHeader) {
    const auto megabytes = [](const PictureShape& shape) {
        return (storeFileSize(bytesOf(shape)) + 50'000) / 100'000; // tenths
    };
    EXPECT_EQ(megabytes(shaped(720, 576)), 66U);
    EXPECT_EQ(megabytes(shaped(1280, 720)), 66U);
    EXPECT_EQ(megabytes(shaped(1280, 720, PixelFormat::bgrx)), 148U);
    EXPECT_EQ(megabytes(shaped(1920, 1080)), 125U);
    EXPECT_EQ(megabytes(shaped(1920, 1080, PixelFormat::bgrx)), 332U);
    EXPECT_EQ(megabytes(shaped(3840, 2160)), 498U);
    EXPECT_EQ(megabytes(shaped(3840, 2160, PixelFormat::bgrx)), 1327U);
    EXPECT_EQ(megabytes(shaped(4096, 4096)), 1007U);
    EXPECT_EQ(megabytes(shaped(4096, 4096, PixelFormat::bgrx)), 2684U);
}

TEST_F(FrameStoreGrowth, LargerPictureKeepsNumbersRecordsPictureModeAndTakeOver) {
    FrameStore old(path);
    FrameStore player(path);
    FrameStore reader(path);
    ASSERT_TRUE(old.takeOver(VideoMode::pal));
    ASSERT_TRUE(player.takeOver(VideoMode::ntsc));
    for (int i = 1; i <= 6; ++i)
        drawSeeded(player, shaped(353, 287), i);
    ASSERT_TRUE(player.blank());
    const std::int64_t blanked = reader.blankedAt();
    Frame before;
    ASSERT_TRUE(reader.newest(before));
    const ino_t file = inode();

    ASSERT_TRUE(player.reserve(shaped(1920, 1080)));
    EXPECT_NE(inode(), file);
    Frame after;
    ASSERT_TRUE(reader.newest(after));
    EXPECT_EQ(after.info, before.info);
    EXPECT_EQ(after.shape, before.shape);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(reader.infosSince(0).size(), 6U);
    EXPECT_EQ(reader.blankedAt(), blanked);
    EXPECT_EQ(reader.mode(), VideoMode::ntsc);
    EXPECT_FALSE(old.draw(shaped(16, 16))) << "the take-over was lost";
    EXPECT_EQ(drawSeeded(player, shaped(1920, 1080), 7).number, 7U);
}

TEST_F(FrameStoreGrowth, StoreNeverBecomesSmaller) {
    FrameStore store(path);
    drawSeeded(store, shaped(1920, 1080), 1);
    const std::uint64_t size = fileSize();
    EXPECT_EQ(size, storeFileSize(bytesOf(shaped(1920, 1080))));
    drawSeeded(store, shaped(320, 240), 2);
    EXPECT_TRUE(store.reserve(shaped(16, 16)));
    EXPECT_TRUE(store.reset(VideoMode::pal));
    EXPECT_TRUE(store.setMode(VideoMode::ntsc));
    EXPECT_TRUE(store.takeOver(VideoMode::pal));
    EXPECT_EQ(fileSize(), size);
}

TEST_F(FrameStoreGrowth, ReservedStoreIsNotReplacedByTheFirstDrawing) {
    FrameStore player(path);
    ASSERT_TRUE(player.reserve(shaped(1920, 1080)));
    const ino_t file = inode();
    ASSERT_TRUE(player.takeOver(VideoMode::ntsc));
    EXPECT_EQ(drawSeeded(player, shaped(1920, 1080), 1).number, 1U);
    EXPECT_EQ(inode(), file);
}

TEST_F(FrameStoreGrowth, WaiterIsWokenByTheFirstLargerPicture) {
    drawOnce();
    std::uint64_t number = 1;
    std::thread waiter([&] {
        FrameStore reader(path);
        for (int i = 0; i < 100 && number == 1; ++i)
            number = reader.wait(1, 30'000);
    });
    drawOnce(2, shaped(1920, 1080));
    waiter.join();
    EXPECT_EQ(number, 2U);
}

// ---- Reading without a copy

TEST_F(FrameStoreGrowth, VisitSeesThePictureInTheStore) {
    FrameStore writer(path);
    FrameStore reader(path);
    int calls = 0;
    const auto look = [&](const PictureView& picture, const FrameInfo& info) {
        ++calls;
        EXPECT_EQ(info.source, 4);
        EXPECT_EQ(picture.shape, shaped(353, 287, PixelFormat::nv12));
        EXPECT_EQ(faultOf(picture), nullptr);
        EXPECT_EQ(picture.plane[2], nullptr);
        EXPECT_TRUE(isWhole(picture, 4));
    };
    EXPECT_FALSE(reader.visitNewest(look));
    EXPECT_EQ(calls, 0) << "there is no picture";
    drawSeeded(writer, shaped(353, 287, PixelFormat::nv12), 4);
    EXPECT_TRUE(reader.visitNewest(look));
    EXPECT_EQ(calls, 1);
}

TEST_F(FrameStoreGrowth, VisitIsUndoneByTheFourthDrawingMeanwhile) {
    FrameStore writer(path);
    FrameStore reader(path);
    const PictureShape shape = shaped(64, 64);
    drawSeeded(writer, shape, 1);
    const auto drawing = [&](int count) {
        return [&, count](const PictureView& picture, const FrameInfo& info) {
            for (int i = 0; i < count; ++i)
                drawSeeded(writer, shape, 10 + i);
            EXPECT_EQ(isWhole(picture, info.source), count < 4);
        };
    };
    EXPECT_TRUE(reader.visitNewest(drawing(3)));
    EXPECT_FALSE(reader.visitNewest(drawing(4)));
    EXPECT_TRUE(reader.visitNewest(drawing(0)));
}

TEST_F(FrameStoreGrowth, VisitedPictureStaysWhileTheStoreGrows) {
    FrameStore writer(path);
    FrameStore reader(path);
    drawSeeded(writer, shaped(64, 64), 1);
    EXPECT_TRUE(reader.visitNewest([&](const PictureView& picture, const FrameInfo& info) {
        for (int i = 0; i < 8; ++i)
            drawSeeded(writer, pagesHigh(smallestPages + 1 + i), 2 + i);
        EXPECT_EQ(reader.newestInfo().number, 9U) << "the same object may be used meanwhile";
        EXPECT_TRUE(isWhole(picture, info.source));
    })) << "the earlier file is not written any more";
}

// ---- Several at once

// Reads each change until it is stopped, and checks what it reads.
class BusyReader {
public:
    using Check = bool (*)(const Frame&);
    BusyReader(const std::string& path, Check isGood)
        : thread_([this, path, isGood] {
              FrameStore store(path);
              Frame frame;
              std::uint64_t last = 0;
              while (!done_) {
                  store.wait(last, 20);
                  const std::int64_t begin = gettimeusec();
                  const bool any = store.newest(frame);
                  longestUs = std::max(longestUs, gettimeusec() - begin);
                  if (!any)
                      ++(last == 0 ? early : lost);
                  else if (!isGood(frame))
                      ++torn;
                  else if (frame.info.number < last)
                      ++backwards;
                  last = std::max(last, frame.info.number);
                  ++reads;
              }
          }) {}
    void stop() {
        done_ = true;
        thread_.join();
        EXPECT_EQ(torn, 0);
        EXPECT_EQ(lost, 0) << "a store that had a picture was without one";
        EXPECT_EQ(backwards, 0);
        EXPECT_GT(reads, early);
    }
    // Read them after stop().
    int reads = 0;
    int early = 0; // before the first picture
    int torn = 0;
    int lost = 0;
    int backwards = 0;
    std::int64_t longestUs = 0;

private:
    std::atomic<bool> done_{false};
    std::thread thread_;
};

TEST_F(FrameStoreGrowth, TwoReadersFollowAThousandGrowths) {
    constexpr int growths = 1000;
    const auto isGood = [](const Frame& frame) { return isWhole(frame); };
    FrameStore player(path);
    drawSeeded(player, shaped(160, 120), 0);
    BusyReader one(path, isGood);
    BusyReader two(path, isGood);
    const std::int64_t begin = gettimeusec();
    for (int i = 1; i <= growths; ++i) {
        const PictureShape larger = pagesHigh(smallestPages + i);
        // Most growths are reserved, and some are made by a drawing.
        if (i % 10 != 0) {
            ASSERT_TRUE(player.reserve(larger));
            ASSERT_NE(drawSeeded(player, shaped(160, 120), i).number, 0U);
        } else {
            ASSERT_NE(drawSeeded(player, larger, i).number, 0U);
        }
    }
    const std::int64_t tookUs = gettimeusec() - begin;
    one.stop();
    two.stop();
    EXPECT_EQ(player.newestInfo().number, growths + 1U);
    EXPECT_LT(tookUs, 120'000'000);
    EXPECT_LT(std::max(one.longestUs, two.longestUs), 10'000'000) << "a reader waited for a growth";
    std::printf("%d growths in %.2f s, %d reads, the longest took %.1f ms\n", growths,
                static_cast<double>(tookUs) / 1e6, one.reads + two.reads,
                static_cast<double>(std::max(one.longestUs, two.longestUs)) / 1e3);
}

TEST_F(FrameStoreGrowth, OthersReserveWhileAPlayerDraws) {
    const auto isGood = [](const Frame& frame) { return isWhole(frame); };
    BusyReader reader(path, isGood);
    std::atomic<bool> done{false};
    int drawn = 0;
    std::thread player([&] {
        FrameStore store(path);
        while (!done)
            drawn += drawSeeded(store, shaped(353, 287), drawn % 100).number != 0 ? 1 : 0;
    });
    FrameStore next(path);
    for (int i = 1; i <= 100; ++i)
        EXPECT_TRUE(next.reserve(pagesHigh(smallestPages + i)));
    done = true;
    player.join();
    reader.stop();
    EXPECT_GT(drawn, 0);
    EXPECT_EQ(next.newestInfo().number, static_cast<std::uint64_t>(drawn))
        << "a number was lost or used twice";
}

TEST_F(FrameStoreGrowth, BlankingIsNotLostInAGrowth) {
    drawOnce();
    std::atomic<bool> done{false};
    std::thread grower([&] {
        FrameStore store(path);
        for (int i = 1; i <= 200; ++i)
            EXPECT_TRUE(store.reserve(pagesHigh(smallestPages + i)));
        done = true;
    });
    FrameStore tool(path);
    FrameStore reader(path);
    for (int i = 0; !done; ++i) {
        const std::int64_t before = gettimeusec();
        // Each change of the file makes it try again, three times.
        if (tool.blank()) {
            ASSERT_GE(reader.blankedAt(), before) << "blanking " << i;
        }
    }
    grower.join();
}

} // namespace
} // namespace screen
