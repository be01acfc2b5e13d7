#include "appliance/screen/frame_store.h"

#include "appliance/screen/frame_store_fixture.h"
#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace screen {
namespace {

const PictureShape pal = televisionShape(VideoMode::pal);
const PictureShape ntsc = televisionShape(VideoMode::ntsc);

using FrameStoreTest = FrameStoreFixture;

TEST_F(FrameStoreTest, MissingStoreHasNoFrame) {
    FrameStore store(path);
    Frame frame;
    EXPECT_FALSE(store.present());
    EXPECT_FALSE(store.newest(frame));
    EXPECT_EQ(store.newestInfo(), FrameInfo{});
    EXPECT_TRUE(store.infosSince(0).empty());
    EXPECT_EQ(store.blankedAt(), 0);
    EXPECT_EQ(store.mode(), VideoMode::pal);
    EXPECT_EQ(store.wait(0, 0), 0U);
    EXPECT_FALSE(fs::exists(path)) << "a reader made a store";
}

TEST_F(FrameStoreTest, DrawnFrameIsReadBackWithItsRecord) {
    FrameStore writer(path);
    FrameStore reader(path);
    const std::int64_t before = gettimeusec();
    const FrameInfo info = drawSeeded(writer, pal, 7);
    EXPECT_EQ(info.number, 1U);
    EXPECT_EQ(info.pid, getpid());
    EXPECT_EQ(info.source, 7);
    EXPECT_GE(info.time, before);
    EXPECT_LE(info.time, gettimeusec());
    Frame frame;
    ASSERT_TRUE(reader.newest(frame));
    EXPECT_TRUE(reader.present());
    EXPECT_EQ(frame.info, info);
    EXPECT_EQ(frame.shape, pal);
    EXPECT_TRUE(isWhole(frame));
    EXPECT_EQ(reader.newestInfo(), info);
}

TEST_F(FrameStoreTest, RecordsOfTheLast256CommitsAreKept) {
    FrameStore store(path);
    for (int i = 0; i < 300; ++i)
        store.draw(pal).commit(i);
    const auto all = store.infosSince(0);
    ASSERT_EQ(all.size(), 256U);
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].number, 45 + i);
        EXPECT_EQ(all[i].source, static_cast<int>(44 + i));
        if (i > 0) {
            EXPECT_GE(all[i].time, all[i - 1].time);
        }
    }
    EXPECT_EQ(store.infosSince(298).size(), 2U);
    EXPECT_TRUE(store.infosSince(300).empty());
    EXPECT_TRUE(store.infosSince(~0ULL).empty());
}

TEST_F(FrameStoreTest, AnEarlierPictureCanBeVisitedWhileTheRingHasIt) {
    FrameStore store(path);
    FrameStore reader(path);
    int visits = 0;
    const auto count = [&](const PictureView& /*picture*/, const FrameInfo& info) {
        ++visits;
        EXPECT_EQ(info.number, 2U);
    };
    EXPECT_FALSE(reader.visit(2, count)) << "there is no store";
    for (int i = 1; i <= 2; ++i)
        drawSeeded(store, pal, i);
    EXPECT_TRUE(reader.visit(2, count));
    EXPECT_FALSE(reader.visit(0, count));
    EXPECT_FALSE(reader.visit(3, count)) << "not yet";
    for (int i = 3; i <= 5; ++i)
        drawSeeded(store, pal, i);
    EXPECT_TRUE(reader.visit(2, count)) << "the oldest one of four";
    drawSeeded(store, pal, 6);
    EXPECT_FALSE(reader.visit(2, count));
    EXPECT_EQ(visits, 2);
    EXPECT_TRUE(
        reader.visitNewest([](const PictureView&, const FrameInfo& info) { EXPECT_EQ(info.number, 6U); }));
}

TEST_F(FrameStoreTest, UnfinishedDrawingLeavesNoTrace) {
    FrameStore store(path);
    drawSeeded(store, pal, 1);
    {
        Drawing drawing = store.draw(pal);
        ASSERT_TRUE(drawing);
        std::fill_n(drawing.plane(0), 1000, std::uint8_t(0xff));
        Frame during;
        FrameStore reader(path);
        ASSERT_TRUE(reader.newest(during));
        EXPECT_TRUE(isWhole(during));
        EXPECT_EQ(during.info.number, 1U);
    }
    EXPECT_EQ(drawSeeded(store, pal, 1).number, 2U);
    EXPECT_EQ(store.infosSince(0).size(), 2U);
}

TEST_F(FrameStoreTest, FinishedDrawingDoesNotHoldTheLockOfTheNext) {
    FrameStore store(path);
    auto first = std::make_unique<Drawing>(store.draw(pal));
    first->commit(0);
    Drawing second = store.draw(pal);
    first.reset();
    FrameStore other(path);
    EXPECT_FALSE(other.draw(pal)) << "the second drawing lost its lock when the first object went";
    EXPECT_EQ(second.commit(0).number, 2U);
}

TEST_F(FrameStoreTest, BlankingIsLaterThanTheFramesBeforeIt) {
    FrameStore store(path);
    FrameStore tool(path);
    const FrameInfo info = drawSeeded(store, pal, 1);
    ASSERT_TRUE(tool.blank());
    EXPECT_GE(store.blankedAt(), info.time);
    EXPECT_LE(store.blankedAt(), drawSeeded(store, pal, 2).time);
}

TEST_F(FrameStoreTest, BlankingWorksDuringADrawing) {
    FrameStore store(path);
    Drawing held = store.draw(pal);
    FrameStore tool(path);
    ASSERT_TRUE(held);
    // Opening a good store needs no lock.
    Frame frame;
    tool.newest(frame);
    held.commit(0);
    ASSERT_TRUE(tool.blank());
    Drawing again = store.draw(pal);
    ASSERT_TRUE(again);
    EXPECT_TRUE(tool.blank());
}

TEST_F(FrameStoreTest, WaiterIsWokenByAFrame) {
    FrameStore store(path);
    drawSeeded(store, pal, 1);
    std::uint64_t seen = 0;
    std::thread waiter([&] {
        FrameStore reader(path);
        seen = reader.wait(1, 30'000);
    });
    drawSeeded(store, pal, 2);
    waiter.join();
    EXPECT_EQ(seen, 2U);
}

TEST_F(FrameStoreTest, WaiterSeesAStoreThatIsCreatedMeanwhile) {
    std::uint64_t seen = 0;
    std::thread waiter([&] {
        FrameStore reader(path);
        seen = reader.wait(0, 30'000);
    });
    FrameStore store(path);
    drawSeeded(store, pal, 2);
    waiter.join();
    EXPECT_EQ(seen, 1U);
}

TEST_F(FrameStoreTest, WaitEndsAfterItsTime) {
    FrameStore store(path);
    drawSeeded(store, pal, 1);
    const std::int64_t start = gettimeusec();
    EXPECT_EQ(store.wait(1, 30), 1U);
    EXPECT_GE(gettimeusec() - start, 29'000);
}

TEST_F(FrameStoreTest, ModeChangeKeepsNumbersRecordsAndPicture) {
    FrameStore player(path);
    FrameStore reader(path);
    drawSeeded(player, pal, 3);
    Frame before;
    ASSERT_TRUE(reader.newest(before));
    FrameStore next(path);
    ASSERT_TRUE(next.setMode(VideoMode::ntsc));
    EXPECT_EQ(reader.mode(), VideoMode::ntsc);
    Frame after;
    ASSERT_TRUE(reader.newest(after));
    EXPECT_EQ(after.info, before.info);
    EXPECT_EQ(after.shape, before.shape);
    EXPECT_EQ(after.bytes, before.bytes);
    EXPECT_EQ(drawSeeded(player, pal, 1).number, 2U) << "a picture has any shape in any mode";
    EXPECT_EQ(reader.infosSince(0).size(), 2U);
    EXPECT_EQ(reader.mode(), VideoMode::ntsc);
    ASSERT_TRUE(next.setMode(VideoMode::pal));
    EXPECT_EQ(reader.mode(), VideoMode::pal);
}

TEST_F(FrameStoreTest, LastOneToTakeTheScreenOverDraws) {
    FrameStore old(path);
    FrameStore next(path);
    FrameStore anybody(path);
    ASSERT_TRUE(old.takeOver(VideoMode::pal));
    EXPECT_EQ(drawSeeded(old, pal, 1).number, 1U);
    EXPECT_EQ(drawSeeded(next, pal, 1).number, 2U);
    ASSERT_TRUE(next.takeOver(VideoMode::ntsc));
    EXPECT_EQ(next.mode(), VideoMode::ntsc);
    EXPECT_FALSE(old.draw(pal));
    EXPECT_TRUE(next.draw(pal));
    EXPECT_EQ(drawSeeded(anybody, ntsc, 0).number, 3U);
    ASSERT_TRUE(next.setMode(VideoMode::pal));
    EXPECT_FALSE(old.draw(pal)) << "the turn was lost with the mode";
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_TRUE(old.draw(pal)) << "a store without a past refuses nobody";
    ASSERT_TRUE(old.takeOver(VideoMode::pal));
    EXPECT_TRUE(old.draw(pal));
}

TEST_F(FrameStoreTest, ModeIsChangedInPlace) {
    FrameStore store(path);
    drawSeeded(store, pal, 1);
    struct stat before {};
    stat(path.c_str(), &before);
    EXPECT_TRUE(FrameStore(path).setMode(VideoMode::pal));
    EXPECT_TRUE(FrameStore(path).takeOver(VideoMode::ntsc));
    struct stat after {};
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(store.mode(), VideoMode::ntsc);
}

TEST_F(FrameStoreTest, WaiterIsWokenByAModeChange) {
    drawOnce();
    std::uint64_t seen = 0;
    std::int64_t waited = 0;
    std::atomic<bool> ended{false};
    std::thread waiter([&] {
        FrameStore reader(path);
        const std::int64_t start = gettimeusec();
        seen = reader.wait(1, 30'000);
        waited = gettimeusec() - start;
        ended = true;
    });
    // A change before the waiter waits does not wake it, so the mode changes until it ends.
    FrameStore store(path);
    for (int i = 0; !ended; ++i) {
        store.setMode(i % 2 == 0 ? VideoMode::ntsc : VideoMode::pal);
        std::this_thread::yield();
    }
    waiter.join();
    EXPECT_EQ(seen, 1U);
    EXPECT_LT(waited, 20'000'000);
}

TEST_F(FrameStoreTest, ResetIsBlackAndContinuesTheNumbers) {
    FrameStore store(path);
    const FrameInfo info = drawSeeded(store, pal, 1);
    ASSERT_TRUE(FrameStore(path).reset(VideoMode::pal));
    Frame frame;
    ASSERT_TRUE(store.newest(frame));
    EXPECT_EQ(frame.shape, pal);
    EXPECT_EQ(frame.bytes, std::vector<std::uint8_t>(bytesOf(pal), 0));
    EXPECT_GE(store.blankedAt(), info.time);
    EXPECT_EQ(drawSeeded(store, pal, 1).number, 2U);
}

TEST_F(FrameStoreTest, FirstDrawingCreatesTheStoreInTheModeSetBefore) {
    FrameStore store(path);
    ASSERT_TRUE(store.setMode(VideoMode::ntsc));
    fs::remove(path);
    EXPECT_EQ(drawSeeded(store, ntsc, 0).number, 1U);
}

TEST_F(FrameStoreTest, ConcurrentWritersShareOneCount) {
    constexpr int each = 100;
    std::vector<std::vector<std::uint64_t>> numbers(4);
    std::vector<std::thread> threads;
    threads.reserve(numbers.size());
    for (auto& mine : numbers)
        threads.emplace_back([&] {
            FrameStore store(path);
            for (int i = 0; i < each; ++i)
                mine.push_back(drawSeeded(store, pal, 1).number);
        });
    for (std::thread& thread : threads)
        thread.join();
    std::set<std::uint64_t> all;
    for (const auto& mine : numbers) {
        EXPECT_TRUE(std::is_sorted(mine.begin(), mine.end()));
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), numbers.size() * each);
    EXPECT_EQ(*all.begin(), 1U);
    EXPECT_EQ(*all.rbegin(), numbers.size() * each);
}

TEST_F(FrameStoreTest, ModeChangesWhileOthersDrawAndRead) {
    std::atomic<bool> done{false};
    std::thread drawer([&] {
        FrameStore store(path);
        while (!done)
            drawSeeded(store, ntsc, 5);
    });
    FrameStore switcher(path);
    FrameStore reader(path);
    Frame frame;
    std::uint64_t last = 0;
    for (int i = 0; i < 50; ++i) {
        const VideoMode mode = i % 2 == 0 ? VideoMode::ntsc : VideoMode::pal;
        ASSERT_TRUE(switcher.setMode(mode));
        ASSERT_EQ(reader.mode(), mode);
        if (!reader.newest(frame))
            continue;
        ASSERT_GE(frame.info.number, last);
        last = frame.info.number;
        ASSERT_TRUE(isWhole(frame));
    }
    done = true;
    drawer.join();
}

TEST(VideoMode, NamesIgnoreCase) {
    EXPECT_EQ(videoModeByName("pal"), VideoMode::pal);
    EXPECT_EQ(videoModeByName("NTSC"), VideoMode::ntsc);
    EXPECT_EQ(videoModeByName("secam"), std::nullopt);
    EXPECT_EQ(videoModeByName(""), std::nullopt);
    EXPECT_EQ(formatOf(VideoMode::ntsc).height, 480);
    EXPECT_EQ(formatOf(VideoMode::pal).height, 576);
}

} // namespace
} // namespace screen
