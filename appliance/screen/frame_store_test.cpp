#include "appliance/screen/frame_store.h"

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

namespace fs = std::filesystem;

class FrameStoreTest : public testing::Test {
protected:
    FrameStoreTest() {
        char folder[] = "/tmp/frame-store-XXXXXX";
        root = mkdtemp(folder);
        path = root / "run/decoder/screen/frames";
    }
    ~FrameStoreTest() override { fs::remove_all(root); }

    // A picture of one colour: it is torn if two pixels differ.
    static std::vector<std::uint32_t> plain(VideoMode mode, std::uint32_t colour) {
        const VideoFormat& format = formatOf(mode);
        return std::vector<std::uint32_t>(static_cast<std::size_t>(format.width * format.height), colour);
    }
    static FrameInfo drawPlain(FrameStore& store, std::uint32_t colour, int source = 0,
                               VideoMode mode = VideoMode::pal) {
        const auto pixels = plain(mode, colour);
        const VideoFormat& format = formatOf(mode);
        return store.draw(pixels.data(), format.width, format.height,
                          4U * static_cast<unsigned>(format.width), source);
    }
    static bool isPlain(const Frame& frame) {
        // Each pixel equals the one before it.
        return std::memcmp(frame.pixels.data(), frame.pixels.data() + 1, 4 * (frame.pixels.size() - 1)) == 0;
    }
    void write(const std::string& content) const {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << content;
    }

    fs::path root;
    fs::path path;
};

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
    const FrameInfo info = drawPlain(writer, 0x123456, 7);
    EXPECT_EQ(info.number, 1U);
    EXPECT_EQ(info.pid, getpid());
    EXPECT_EQ(info.source, 7);
    EXPECT_GE(info.time, before);
    EXPECT_LE(info.time, gettimeusec());
    Frame frame;
    ASSERT_TRUE(reader.newest(frame));
    EXPECT_TRUE(reader.present());
    EXPECT_EQ(frame.info, info);
    EXPECT_EQ(frame.width, 720);
    EXPECT_EQ(frame.height, 576);
    EXPECT_EQ(frame.mode, VideoMode::pal);
    EXPECT_EQ(frame.pixels, plain(VideoMode::pal, 0x123456));
    EXPECT_EQ(reader.newestInfo(), info);
}

TEST_F(FrameStoreTest, RowsOfAWiderPictureAreTakenByTheirStride) {
    FrameStore store(path);
    std::vector<std::uint32_t> wide(800 * 576, 0xff0000);
    for (std::size_t y = 0; y < 576; ++y)
        std::fill_n(wide.begin() + static_cast<std::ptrdiff_t>(y * 800), 720, 0x00ff00);
    EXPECT_EQ(store.draw(wide.data(), 720, 576, 3200, 0).number, 1U);
    Frame frame;
    ASSERT_TRUE(store.newest(frame));
    EXPECT_EQ(frame.pixels, plain(VideoMode::pal, 0x00ff00));
}

TEST_F(FrameStoreTest, PictureOfAnotherSizeIsRefused) {
    FrameStore store(path);
    EXPECT_EQ(drawPlain(store, 1, 0, VideoMode::ntsc).number, 0U);
    Frame frame;
    EXPECT_FALSE(store.newest(frame));
    EXPECT_EQ(drawPlain(store, 1).number, 1U) << "the refusal cost a number or kept the lock";
}

TEST_F(FrameStoreTest, RecordsOfTheLast256CommitsAreKept) {
    FrameStore store(path);
    for (int i = 0; i < 300; ++i)
        store.draw().commit(i);
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

TEST_F(FrameStoreTest, UnfinishedDrawingLeavesNoTrace) {
    FrameStore store(path);
    drawPlain(store, 0x111111);
    {
        Drawing drawing = store.draw();
        ASSERT_TRUE(drawing);
        std::fill_n(drawing.pixels(), 1000, std::uint8_t(0xff));
        Frame during;
        FrameStore reader(path);
        ASSERT_TRUE(reader.newest(during));
        EXPECT_TRUE(isPlain(during));
        EXPECT_EQ(during.info.number, 1U);
    }
    EXPECT_EQ(drawPlain(store, 0x222222).number, 2U);
    EXPECT_EQ(store.infosSince(0).size(), 2U);
}

TEST_F(FrameStoreTest, FinishedDrawingDoesNotHoldTheLockOfTheNext) {
    FrameStore store(path);
    auto first = std::make_unique<Drawing>(store.draw());
    first->commit(0);
    Drawing second = store.draw();
    first.reset();
    FrameStore other(path);
    EXPECT_FALSE(other.draw()) << "the second drawing lost its lock when the first object went";
    EXPECT_EQ(second.commit(0).number, 2U);
}

TEST_F(FrameStoreTest, BlankingIsLaterThanTheFramesBeforeIt) {
    FrameStore store(path);
    FrameStore tool(path);
    const FrameInfo info = drawPlain(store, 1);
    ASSERT_TRUE(tool.blank());
    EXPECT_GE(store.blankedAt(), info.time);
    EXPECT_LE(store.blankedAt(), drawPlain(store, 2).time);
}

TEST_F(FrameStoreTest, BlankingWorksDuringADrawing) {
    FrameStore store(path);
    Drawing held = store.draw();
    FrameStore tool(path);
    ASSERT_TRUE(held);
    // Opening a good store needs no lock.
    Frame frame;
    tool.newest(frame);
    held.commit(0);
    ASSERT_TRUE(tool.blank());
    Drawing again = store.draw();
    ASSERT_TRUE(again);
    EXPECT_TRUE(tool.blank());
}

TEST_F(FrameStoreTest, WaiterIsWokenByAFrame) {
    FrameStore store(path);
    drawPlain(store, 1);
    std::uint64_t seen = 0;
    std::thread waiter([&] {
        FrameStore reader(path);
        seen = reader.wait(1, 30'000);
    });
    drawPlain(store, 2);
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
    drawPlain(store, 2);
    waiter.join();
    EXPECT_EQ(seen, 1U);
}

TEST_F(FrameStoreTest, WaitEndsAfterItsTime) {
    FrameStore store(path);
    drawPlain(store, 1);
    const std::int64_t start = gettimeusec();
    EXPECT_EQ(store.wait(1, 30), 1U);
    EXPECT_GE(gettimeusec() - start, 29'000);
}

TEST_F(FrameStoreTest, ModeChangeKeepsNumbersRecordsAndPicture) {
    FrameStore player(path);
    FrameStore reader(path);
    drawPlain(player, 0xaaaaaa, 3);
    Frame frame;
    ASSERT_TRUE(reader.newest(frame));
    FrameStore next(path);
    ASSERT_TRUE(next.setMode(VideoMode::ntsc));
    EXPECT_EQ(reader.mode(), VideoMode::ntsc);
    ASSERT_TRUE(reader.newest(frame));
    EXPECT_EQ(frame.height, 480);
    EXPECT_EQ(frame.pixels, plain(VideoMode::ntsc, 0xaaaaaa));
    EXPECT_EQ(frame.info.number, 1U);
    EXPECT_EQ(frame.info.source, 3);
    EXPECT_EQ(drawPlain(player, 1).number, 0U) << "a PAL picture fitted an NTSC screen";
    EXPECT_EQ(drawPlain(player, 1, 4, VideoMode::ntsc).number, 2U);
    EXPECT_EQ(reader.infosSince(0).size(), 2U);
    ASSERT_TRUE(next.setMode(VideoMode::pal));
    ASSERT_TRUE(reader.newest(frame));
    EXPECT_EQ(frame.pixels[0], 0U);
    EXPECT_EQ(frame.pixels[720 * 47 + 719], 0U);
    EXPECT_EQ(frame.pixels[720 * 48], 1U);
    EXPECT_EQ(frame.pixels[720 * 527 + 719], 1U);
    EXPECT_EQ(frame.pixels[720 * 528], 0U);
}

TEST_F(FrameStoreTest, LastOneToTakeTheScreenOverDraws) {
    FrameStore old(path);
    FrameStore next(path);
    FrameStore anybody(path);
    ASSERT_TRUE(old.takeOver(VideoMode::pal));
    EXPECT_EQ(drawPlain(old, 1).number, 1U);
    EXPECT_EQ(drawPlain(next, 1).number, 2U);
    ASSERT_TRUE(next.takeOver(VideoMode::ntsc));
    EXPECT_EQ(next.mode(), VideoMode::ntsc);
    EXPECT_FALSE(old.draw());
    EXPECT_TRUE(next.draw());
    EXPECT_EQ(drawPlain(anybody, 1, 0, VideoMode::ntsc).number, 3U);
    ASSERT_TRUE(next.setMode(VideoMode::pal));
    EXPECT_FALSE(old.draw()) << "the turn was lost with the mode";
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_TRUE(old.draw()) << "a store without a past refuses nobody";
    ASSERT_TRUE(old.takeOver(VideoMode::pal));
    EXPECT_TRUE(old.draw());
}

TEST_F(FrameStoreTest, SameModeAgainChangesNothing) {
    FrameStore store(path);
    drawPlain(store, 1);
    struct stat before {};
    stat(path.c_str(), &before);
    EXPECT_TRUE(FrameStore(path).setMode(VideoMode::pal));
    struct stat after {};
    stat(path.c_str(), &after);
    EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(FrameStoreTest, ResetIsBlackAndContinuesTheNumbers) {
    FrameStore store(path);
    const FrameInfo info = drawPlain(store, 0xffffff);
    ASSERT_TRUE(FrameStore(path).reset(VideoMode::pal));
    Frame frame;
    ASSERT_TRUE(store.newest(frame));
    EXPECT_EQ(frame.pixels, plain(VideoMode::pal, 0));
    EXPECT_GE(store.blankedAt(), info.time);
    EXPECT_EQ(drawPlain(store, 1).number, 2U);
}

TEST_F(FrameStoreTest, FirstDrawingCreatesTheStoreInTheModeSetBefore) {
    FrameStore store(path);
    ASSERT_TRUE(store.setMode(VideoMode::ntsc));
    fs::remove(path);
    EXPECT_EQ(drawPlain(store, 1, 0, VideoMode::ntsc).number, 1U);
}

TEST_F(FrameStoreTest, GarbageFilesAreRefusedAndReplaced) {
    const std::uint64_t size = storeFileSize(VideoMode::pal);
    for (const std::string& content : {std::string(), std::string("screen\r\n"), std::string(size, '\xff'),
                                       std::string(size, '\0'), std::string(size - 1, 'x')}) {
        write(content);
        FrameStore reader(path);
        Frame frame;
        EXPECT_FALSE(reader.newest(frame));
        FrameStore writer(path);
        EXPECT_EQ(drawPlain(writer, 5).number, 1U);
        ASSERT_TRUE(reader.newest(frame));
        EXPECT_TRUE(isPlain(frame));
    }
}

TEST_F(FrameStoreTest, EveryDamagedHeaderFieldIsRefused) {
    FrameStore(path).setMode(VideoMode::pal);
    drawPlain(*std::make_unique<FrameStore>(path), 1);
    std::ifstream in(path, std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    // The fields before the futex word. The others may have any value, except times in the future.
    for (std::size_t offset = 0; offset < offsetof(StoreHeader, changes); ++offset) {
        std::string bad = good;
        bad[offset] = static_cast<char>(bad[offset] ^ 0x55);
        write(bad);
        Frame frame;
        EXPECT_FALSE(FrameStore(path).newest(frame)) << "byte " << offset;
    }
}

TEST_F(FrameStoreTest, StoreFromBeforeARestartIsRefused) {
    FrameStore writer(path);
    drawPlain(writer, 1);
    std::string reason;
    StoreFile::open(path, true, reason)->header().newestTime = gettimeusec() + 3'600'000'000;
    Frame frame;
    EXPECT_FALSE(FrameStore(path).newest(frame));
    EXPECT_EQ(drawPlain(*std::make_unique<FrameStore>(path), 2).number, 1U);
}

TEST_F(FrameStoreTest, FileTruncatedWhileOpenIsReplacedWithoutASignal) {
    FrameStore writer(path);
    FrameStore reader(path);
    Frame frame;
    drawPlain(writer, 1);
    ASSERT_TRUE(reader.newest(frame));
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_FALSE(reader.newest(frame));
    EXPECT_EQ(reader.blankedAt(), 0);
    EXPECT_EQ(drawPlain(writer, 2).number, 1U);
    EXPECT_TRUE(reader.newest(frame));
}

TEST_F(FrameStoreTest, RemovedFolderIsCreatedAgain) {
    FrameStore writer(path);
    FrameStore reader(path);
    Frame frame;
    drawPlain(writer, 1);
    ASSERT_TRUE(reader.newest(frame));
    fs::remove_all(root / "run");
    EXPECT_FALSE(reader.newest(frame));
    EXPECT_EQ(drawPlain(writer, 2).number, 1U);
    EXPECT_TRUE(reader.newest(frame));
}

TEST_F(FrameStoreTest, FolderInItsPlaceIsAClearFailure) {
    fs::create_directories(path);
    FrameStore store(path);
    Frame frame;
    EXPECT_FALSE(store.newest(frame));
    EXPECT_FALSE(store.draw());
    EXPECT_FALSE(store.blank());
    EXPECT_FALSE(store.reset(VideoMode::pal));
}

// Child processes draw pictures of one colour as fast as they can. Every few milliseconds the parent kills one
// of them, mostly while it draws, and starts another. It reads all the time.
TEST_F(FrameStoreTest, KilledWritersTearNothingAndNumbersNeverRepeat) {
    constexpr int rounds = 40;
    const auto startWriter = [&](std::uint32_t colour) {
        const pid_t pid = fork();
        if (pid == 0) {
            FrameStore store(path);
            for (;;)
                drawPlain(store, colour, static_cast<int>(colour));
        }
        return pid;
    };
    FrameStore reader(path);
    Frame frame;
    std::uint64_t last = 0;
    std::uint64_t recorded = 0;
    std::int64_t lastTime = 0;
    int reads = 0;
    pid_t other = startWriter(1);
    for (int round = 0; round < rounds; ++round) {
        const pid_t victim = startWriter(static_cast<std::uint32_t>(2 + round));
        for (int i = 0; i < 12; ++i) {
            const std::uint64_t number = reader.wait(last, 10'000);
            ASSERT_NE(number, 0U);
            ASSERT_TRUE(reader.newest(frame));
            ASSERT_GE(frame.info.number, last);
            last = frame.info.number;
            ASSERT_TRUE(isPlain(frame)) << "torn picture " << last;
            ASSERT_EQ(frame.pixels[0], static_cast<std::uint32_t>(frame.info.source));
            for (const FrameInfo& info : reader.infosSince(recorded)) {
                ASSERT_GT(info.number, recorded);
                ASSERT_GE(info.time, lastTime);
                recorded = info.number;
                lastTime = info.time;
            }
            ++reads;
        }
        kill(other, SIGKILL);
        waitpid(other, nullptr, 0);
        other = victim;
    }
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
    FrameStore writer(path);
    EXPECT_GT(drawPlain(writer, 9).number, last) << "a killed writer kept the lock";
    std::printf("%d reads, %llu frames, %d writers killed\n", reads, static_cast<unsigned long long>(last),
                rounds + 1);
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
                mine.push_back(drawPlain(store, 1).number);
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
        while (!done) {
            Drawing drawing = store.draw();
            if (!drawing)
                continue;
            std::fill_n(reinterpret_cast<std::uint32_t*>(drawing.pixels()),
                        std::size_t(1) * drawing.width() * drawing.height(), 0x55U);
            drawing.commit(1);
        }
    });
    FrameStore switcher(path);
    FrameStore reader(path);
    Frame frame;
    std::uint64_t last = 0;
    for (int i = 0; i < 50; ++i) {
        ASSERT_TRUE(switcher.setMode(i % 2 == 0 ? VideoMode::ntsc : VideoMode::pal));
        if (!reader.newest(frame))
            continue;
        ASSERT_GE(frame.info.number, last);
        last = frame.info.number;
        ASSERT_EQ(frame.pixels.size(), plain(frame.mode, 0).size());
        ASSERT_EQ(frame.pixels[frame.pixels.size() / 2], 0x55U);
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
