// A file system without room for the store.
#include "appliance/screen/frame_store_fixture.h"
#include "appliance/screen/store_file.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

namespace screen {
namespace {

class FullDisk : public FrameStoreFixture {
protected:
    // How often this process logs that it has no memory for a store of that size during the call.
    static int complaints(std::uint64_t size, const std::function<void()>& act) {
        testing::internal::CaptureStderr();
        act();
        const std::string log = testing::internal::GetCapturedStderr();
        const std::string text = "no memory for a file of " + std::to_string(size) + " bytes: ";
        int count = 0;
        for (std::size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size()))
            ++count;
        return count;
    }
    // What has to hold when there is room for a small store only.
    void expectSmallPicturesOnly() {
        FrameStore player(path);
        FrameStore reader(path);
        const PictureShape large = shaped(1920, 1080);
        ASSERT_EQ(drawSeeded(player, shaped(353, 287), 1).number, 1U);
        const auto drawLarge = [&] {
            for (int i = 0; i < 50; ++i)
                EXPECT_FALSE(player.draw(large));
            EXPECT_FALSE(player.reserve(large));
        };
        EXPECT_EQ(complaints(storeFileSize(bytesOf(large)), drawLarge), 1);
        EXPECT_FALSE(fs::exists(path.string() + ".new"));
        EXPECT_EQ(drawSeeded(player, shaped(353, 287), 2).number, 2U) << "small pictures are not limited";
        Frame frame;
        ASSERT_TRUE(reader.newest(frame));
        EXPECT_TRUE(isWhole(frame));
    }
    // Mounts a tmpfs for the store in a mount namespace of this process. Returns "" or why it failed.
    std::string mountTmpfs(int megabytes) {
        folder = path.parent_path();
        fs::create_directories(folder);
        if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            return std::string("no mount namespace of its own: ") + std::strerror(errno);
        if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            return std::string("no private mounts: ") + std::strerror(errno);
        const std::string options = "size=" + std::to_string(megabytes) + "m";
        mounted = mount("tmpfs", folder.c_str(), "tmpfs", 0, options.c_str()) == 0;
        return mounted ? "" : std::string("no tmpfs: ") + std::strerror(errno);
    }
    ~FullDisk() override {
        if (mounted)
            umount2(folder.c_str(), MNT_DETACH);
    }

    fs::path folder;
    bool mounted = false;
};

TEST_F(FullDisk, SmallTmpfsIsAnErrorMessage) {
    if (const std::string reason = mountTmpfs(16); !reason.empty())
        GTEST_SKIP() << reason;
    expectSmallPicturesOnly();
    // With room again, the same pictures fit: 6.6 MB and 12.5 MB at the same time.
    ASSERT_EQ(mount("tmpfs", folder.c_str(), "tmpfs", MS_REMOUNT, "size=32m"), 0);
    FrameStore next(path);
    EXPECT_EQ(drawSeeded(next, shaped(1920, 1080), 3).number, 3U);
}

TEST_F(FullDisk, NoRoomAtAllIsAnErrorMessageAndNoSignal) {
    if (const std::string reason = mountTmpfs(4); !reason.empty())
        GTEST_SKIP() << reason;
    FrameStore store(path);
    const auto writeAll = [&] {
        EXPECT_FALSE(store.setMode(VideoMode::pal));
        EXPECT_FALSE(store.takeOver(VideoMode::pal));
        EXPECT_FALSE(store.reset(VideoMode::pal));
        EXPECT_FALSE(store.blank());
        for (int i = 0; i < 50; ++i)
            EXPECT_FALSE(store.draw(shaped(16, 16)));
    };
    EXPECT_EQ(complaints(smallestStoreFile(), writeAll), 1);
    EXPECT_FALSE(store.present());
}

TEST_F(FullDisk, ProcessLimitIsAnErrorMessageAndNoSignal) {
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit little{7'000'000, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    expectSmallPicturesOnly();
    EXPECT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
}

} // namespace
} // namespace screen
