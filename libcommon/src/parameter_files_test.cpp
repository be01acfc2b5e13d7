#include "libcommon/src/parameter_files.h"

#include <gtest/gtest.h>

namespace {

using local::FileStamp;
using local::isSettled;

constexpr std::int64_t millisecond = 1'000'000;
constexpr std::int64_t now = 1'700'000'000'000 * millisecond;

TEST(ParameterFiles, AVersionIsSettledWhenTheClockHasTickedSinceItsChange) {
    EXPECT_FALSE(isSettled(now, now));
    EXPECT_FALSE(isSettled(now - 1, now));
    EXPECT_FALSE(isSettled(now - 10 * millisecond, now));
    EXPECT_FALSE(isSettled(now - 50 * millisecond, now));
    EXPECT_TRUE(isSettled(now - 51 * millisecond, now));
    EXPECT_TRUE(isSettled(now - 1000 * millisecond, now));
}

TEST(ParameterFiles, AVersionFromTheFutureIsSettled) {
    EXPECT_TRUE(isSettled(now + 1, now));
    EXPECT_TRUE(isSettled(now + 3'600'000 * millisecond, now));
}

TEST(ParameterFiles, AnyDifferenceMakesAnotherVersion) {
    struct stat file {};
    file.st_dev = 1;
    file.st_ino = 2;
    file.st_size = 3;
    file.st_mtim = {.tv_sec = 4, .tv_nsec = 5};
    file.st_ctim = {.tv_sec = 6, .tv_nsec = 7};
    const FileStamp stamp = local::stampOf(file);
    EXPECT_EQ(stamp, local::stampOf(file));
    const auto changed = [&](auto change) {
        struct stat other = file;
        change(other);
        return local::stampOf(other) != stamp;
    };
    EXPECT_TRUE(changed([](struct stat& other) { other.st_dev = 9; }));
    EXPECT_TRUE(changed([](struct stat& other) { other.st_ino = 9; }));
    EXPECT_TRUE(changed([](struct stat& other) { other.st_size = 9; }));
    EXPECT_TRUE(changed([](struct stat& other) { other.st_mtim.tv_nsec = 9; }));
    EXPECT_TRUE(changed([](struct stat& other) { other.st_ctim.tv_nsec = 9; }));
    EXPECT_NE(FileStamp{.error = ENOENT}, stamp);
    EXPECT_NE(FileStamp{.error = ENOENT}, FileStamp{.error = EACCES});
}

} // namespace
