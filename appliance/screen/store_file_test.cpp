// Files that are not a usable store: garbage, damaged, truncated, replaced.
#include "appliance/screen/frame_store_fixture.h"
#include "appliance/screen/store_file.h"

#include <libcommon/clock.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <fcntl.h>
#include <random>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace screen {
namespace {

const PictureShape pal = televisionShape(VideoMode::pal);

class StoreFileTest : public FrameStoreFixture {
protected:
    // Writes into the file as a hostile program would, without the lock.
    void poke(std::size_t offset, const void* bytes, std::size_t count) const {
        const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(fd, 0);
        EXPECT_EQ(pwrite(fd, bytes, count, static_cast<off_t>(offset)), static_cast<ssize_t>(count));
        close(fd);
    }
    // Calls everything that reads. Returns whether it found a picture.
    static bool readAll(FrameStore& store) {
        Frame frame;
        const bool any = store.newest(frame);
        store.visitNewest([](const PictureView& picture, const FrameInfo&) {
            const PlaneLayouts planes = planesOf(picture.shape);
            unsigned sum = 0;
            for (std::size_t i = 0; i < planes.size() && planes[i].rows > 0; ++i)
                sum += picture.plane[i][static_cast<std::size_t>(planes[i].rows - 1) * picture.stride[i]];
            EXPECT_LE(sum, 3 * 255U);
        });
        store.newestInfo();
        EXPECT_LE(store.infosSince(0).size(), recordCount);
        store.blankedAt();
        store.mode();
        store.wait(0, 0);
        return any;
    }
};

struct Field {
    const char* name;
    std::size_t offset;
    std::size_t bytes;
    std::vector<std::uint64_t> bad;
};

constexpr std::uint64_t all = ~std::uint64_t(0);

// The slot of picture 1.
std::size_t inSlot(std::size_t offset) {
    return offsetof(StoreHeader, slot) + sizeof(FrameSlot) + offset;
}
std::size_t inShape(std::size_t offset) {
    return inSlot(offsetof(FrameSlot, shape)) + offset;
}

std::vector<Field> fields() {
    const std::uint64_t future = static_cast<std::uint64_t>(gettimeusec()) + 3'600'000'000U;
    return {
        {"magic", offsetof(StoreHeader, magic), 8, {0, 1, all}},
        {"version", offsetof(StoreHeader, version), 4, {0, 1, 3, all}},
        {"slots", offsetof(StoreHeader, slots), 4, {0, 1, 3, 5, all}},
        {"records", offsetof(StoreHeader, records), 4, {0, 1, 255, 257, all}},
        {"padding", offsetof(StoreHeader, padding), 4, {1, all}},
        {"slotBytes",
         offsetof(StoreHeader, slotBytes),
         8,
         {0, 1, 4096, 1'658'879, 1'662'976, 1ULL << 40, all}},
        {"fileSize", offsetof(StoreHeader, fileSize), 8, {0, 1, 4096, 1ULL << 40, all}},
        {"mode", offsetof(StoreHeader, mode), 4, {0, 3, all}},
        {"retired", offsetof(StoreHeader, retired), 4, {1, 2, all}},
        {"padding2", offsetof(StoreHeader, padding2), 4, {1, all}},
        {"newest", offsetof(StoreHeader, newest), 8, {(1ULL << 62) + 1, 1ULL << 63, all - 1, all}},
        {"newestTime", offsetof(StoreHeader, newestTime), 8, {future, all, 1ULL << 63, all >> 1}},
        {"blankedAt", offsetof(StoreHeader, blankedAt), 8, {future, all, 1ULL << 63, all >> 1}},
        {"width", inShape(offsetof(SlotShape, width)), 4, {0, 4097, 1U << 31, all}},
        {"height", inShape(offsetof(SlotShape, height)), 4, {0, 577, 4096, 4097, 1U << 31, all}},
        {"format", inShape(offsetof(SlotShape, format)), 4, {0, 4, all}},
        {"aspectNumerator", inShape(offsetof(SlotShape, aspectNumerator)), 4, {0, 65'536, 1U << 31, all}},
        {"aspectDenominator", inShape(offsetof(SlotShape, aspectDenominator)), 4, {0, 65'536, 1U << 31, all}},
        {"matrix", inShape(offsetof(SlotShape, matrix)), 4, {0, 3, all}},
        {"fullRange", inShape(offsetof(SlotShape, fullRange)), 4, {2, all}},
        {"turn", inShape(offsetof(SlotShape, turn)), 4, {4, all}},
    };
}

TEST_F(StoreFileTest, EachBrokenFieldIsRefusedAndTheFileReplaced) {
    for (const Field& field : fields())
        for (const std::uint64_t bad : field.bad) {
            fs::remove(path);
            ASSERT_EQ(drawOnce().number, 1U);
            poke(field.offset, &bad, field.bytes);
            FrameStore reader(path);
            EXPECT_FALSE(readAll(reader)) << field.name << " = " << bad;
            EXPECT_FALSE(reader.present()) << field.name << " = " << bad;
            FrameStore writer(path);
            EXPECT_EQ(drawSeeded(writer, pal, 2).number, 1U) << field.name << " = " << bad;
            Frame frame;
            ASSERT_TRUE(reader.newest(frame)) << field.name << " = " << bad;
            EXPECT_TRUE(isWhole(frame)) << field.name << " = " << bad;
        }
}

TEST_F(StoreFileTest, FieldBrokenWhileTheStoreIsOpenDoesNoHarm) {
    for (const Field& field : fields())
        for (const std::uint64_t bad : field.bad) {
            fs::remove(path);
            FrameStore reader(path);
            FrameStore writer(path);
            ASSERT_EQ(drawSeeded(writer, pal, 1).number, 1U);
            ASSERT_TRUE(readAll(reader));
            poke(field.offset, &bad, field.bytes);
            readAll(reader);
            ASSERT_NE(drawSeeded(writer, shaped(1280, 720, PixelFormat::bgrx), 2).number, 0U) << field.name;
            writer.setMode(VideoMode::ntsc);
            writer.blank();
            readAll(reader);
        }
}

TEST_F(StoreFileTest, MissingSequenceOfTheNewestPictureHidesItUntilTheNext) {
    FrameStore writer(path);
    FrameStore reader(path);
    for (const std::uint64_t bad : {std::uint64_t(0), std::uint64_t(1), std::uint64_t(6), all}) {
        fs::remove(path);
        ASSERT_EQ(drawSeeded(writer, pal, 1).number, 1U);
        poke(inSlot(offsetof(FrameSlot, sequence)), &bad, sizeof bad);
        EXPECT_FALSE(readAll(reader)) << bad;
        EXPECT_EQ(drawSeeded(writer, pal, 2).number, 2U);
        EXPECT_TRUE(readAll(reader)) << bad;
    }
}

// Random bytes in the header, one file after the other. The sanitizers find an access outside of the store.
TEST_F(StoreFileTest, RandomDamageDoesNoHarm) {
    constexpr int rounds = 2000;
    drawOnce();
    const std::string good = content().substr(0, sizeof(StoreHeader));
    std::mt19937 random(4711);
    FrameStore open(path);
    for (int round = 0; round < rounds; ++round) {
        std::string bad = good;
        // Most of the bytes are records; the beginning is where harm could be done.
        const std::size_t part = round % 2 == 0 ? bad.size() : offsetof(StoreHeader, record);
        for (unsigned i = 0; i <= random() % 8; ++i)
            bad[random() % part] = static_cast<char>(random());
        poke(0, bad.data(), bad.size());
        FrameStore reader(path);
        readAll(reader);
        readAll(open);
        if (round % 20 == 0) {
            EXPECT_NE(drawOnce().number, 0U);
            EXPECT_TRUE(FrameStore(path).blank());
        }
    }
}

TEST_F(StoreFileTest, FilesOfEverySizeButAStoresAreRefused) {
    drawOnce();
    const std::string good = content();
    for (const std::size_t size :
         {good.size() - 1, good.size() + 1, good.size() - 4096, good.size() + 4096, good.size() - 16'384,
          good.size() + 16'384, sizeof(StoreHeader), std::size_t(1)}) {
        std::string other = good;
        other.resize(size);
        write(other);
        FrameStore reader(path);
        EXPECT_FALSE(readAll(reader)) << size;
    }
}

TEST_F(StoreFileTest, HugeSparseFileIsRefused) {
    drawOnce();
    ASSERT_EQ(truncate(path.c_str(), off_t(1) << 40), 0);
    FrameStore reader(path);
    EXPECT_FALSE(readAll(reader));
    EXPECT_EQ(drawOnce().number, 1U);
    EXPECT_TRUE(readAll(reader));
}

TEST_F(StoreFileTest, FileThatCannotBeOpenedIsNoStore) {
    fs::create_directories(path.parent_path());
    ASSERT_EQ(symlink("/dev/zero", path.c_str()), 0);
    EXPECT_FALSE(FrameStore(path).present());
    fs::remove(path);
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(FrameStore(path).present()) << "and nobody waits for its other end";
    EXPECT_EQ(drawOnce().number, 1U);
}

TEST_F(StoreFileTest, GarbageFilesAreRefusedAndReplaced) {
    const auto size = static_cast<std::size_t>(smallestStoreFile());
    for (const std::string& content : {std::string(), std::string("screen\r\n"), std::string(size, '\xff'),
                                       std::string(size, '\0'), std::string(size - 1, 'x')}) {
        write(content);
        FrameStore reader(path);
        Frame frame;
        EXPECT_FALSE(reader.newest(frame));
        FrameStore writer(path);
        EXPECT_EQ(drawSeeded(writer, pal, 5).number, 1U);
        ASSERT_TRUE(reader.newest(frame));
        EXPECT_TRUE(isWhole(frame));
    }
}

TEST_F(StoreFileTest, StoreFromBeforeARestartIsRefused) {
    FrameStore writer(path);
    drawSeeded(writer, pal, 1);
    std::string reason;
    StoreFile::open(path, true, reason)->header().newestTime = gettimeusec() + 3'600'000'000;
    Frame frame;
    EXPECT_FALSE(FrameStore(path).newest(frame));
    EXPECT_EQ(drawOnce(2).number, 1U);
}

TEST_F(StoreFileTest, FileTruncatedWhileOpenIsReplacedWithoutASignal) {
    FrameStore writer(path);
    FrameStore reader(path);
    Frame frame;
    drawSeeded(writer, pal, 1);
    ASSERT_TRUE(reader.newest(frame));
    ASSERT_EQ(truncate(path.c_str(), 0), 0);
    EXPECT_FALSE(reader.newest(frame));
    EXPECT_EQ(reader.blankedAt(), 0);
    EXPECT_EQ(drawSeeded(writer, pal, 2).number, 1U);
    EXPECT_TRUE(reader.newest(frame));
}

TEST_F(StoreFileTest, RemovedFolderIsCreatedAgain) {
    FrameStore writer(path);
    FrameStore reader(path);
    Frame frame;
    drawSeeded(writer, pal, 1);
    ASSERT_TRUE(reader.newest(frame));
    fs::remove_all(root / "run");
    EXPECT_FALSE(reader.newest(frame));
    EXPECT_EQ(drawSeeded(writer, pal, 2).number, 1U);
    EXPECT_TRUE(reader.newest(frame));
}

TEST_F(StoreFileTest, FolderInItsPlaceIsAClearFailure) {
    fs::create_directories(path);
    FrameStore store(path);
    Frame frame;
    EXPECT_FALSE(store.newest(frame));
    EXPECT_FALSE(store.draw(pal));
    EXPECT_FALSE(store.blank());
    EXPECT_FALSE(store.reset(VideoMode::pal));
}

} // namespace
} // namespace screen
