// Switching from player to player, seen in the frame store.
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"

#include "appliance/screen/frame_store.h"
#include "tests/appliance/isolation.h"
#include "tests/support/screen_picture.h"

#include <libcommon/clock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <thread>

namespace player {
namespace {

using scripted::Server;

// Examines every picture of the frame store, and counts the wrong ones.
class Watcher {
public:
    Watcher() : thread_(&Watcher::watch, this) {}
    ~Watcher() { stop(); }
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    void stop() {
        done_ = true;
        if (thread_.joinable())
            thread_.join();
    }

    std::atomic<int> seen{0};
    std::atomic<int> unreadable{0};       // black, torn or broken: the mark can't be read
    std::atomic<int> strange{0};          // the mark is not of the source that is stored with the picture
    std::vector<screen::FrameInfo> infos; // all pictures; read it after stop()

private:
    void watch() {
        screen::FrameStore store;
        screen::Frame frame;
        std::uint64_t number = 0;
        while (!done_) {
            number = store.wait(number, 100);
            for (const screen::FrameInfo& info : store.infosSince(infos.empty() ? 0 : infos.back().number))
                infos.push_back(info);
            if (!store.newest(frame))
                continue;
            const std::optional<FrameMark> mark = screen::markIn(frame);
            ++seen;
            if (!mark)
                ++unreadable;
            else if (mark->source != frame.info.source)
                ++strange;
        }
    }

    std::atomic<bool> done_{false};
    std::thread thread_;
};

class HandOver : public testing::Test {
protected:
    HandOver() : isolated_(appliance::isolate()) {}

    pid_t start(const Server& server, int source, const char* mode = "pal") {
        return supervisor_.start(PLAYER, {"-m", mode, "-o", "tv", "-n", std::to_string(source), "-r", "10000",
                                          "-P", std::to_string(server.port()), "127.0.0.1"});
    }
    // Switches as the supervisor does. The old player has ended when this returns; false when a step failed.
    bool switchOver(pid_t old, pid_t next) {
        if (!supervisor_.arrived(next, 0))
            return false;
        supervisor_.release(0, {next});
        kill(old, SIGHUP);
        if (!supervisor_.arrived(old, 1, 2) || !supervisor_.arrived(next, 1))
            return false;
        supervisor_.release(1, {std::min(old, next), std::max(old, next)});
        return supervisor_.end(old) == 0;
    }
    void waitForFramesOf(pid_t pid, int count) {
        screen::FrameStore store;
        const std::int64_t until = gettimeusec() + 30'000'000;
        std::uint64_t number = 0;
        for (int seen = 0; seen < count && gettimeusec() < until;) {
            number = store.wait(number, 1000);
            seen += store.newestInfo().pid == pid ? 1 : 0;
        }
    }

    const bool isolated_;
    FakeSupervisor supervisor_;
};

struct Gaps {
    std::vector<double> milliseconds;
    int returned = 0; // pictures of a player after the first one of the next player

    explicit Gaps(const std::vector<screen::FrameInfo>& infos) {
        std::vector<int> gone;
        for (std::size_t i = 1; i < infos.size(); ++i) {
            if (infos[i].pid == infos[i - 1].pid)
                continue;
            milliseconds.push_back(static_cast<double>(infos[i].time - infos[i - 1].time) / 1000);
            gone.push_back(infos[i - 1].pid);
            returned += static_cast<int>(std::count(gone.begin(), gone.end(), infos[i].pid));
        }
        std::sort(milliseconds.begin(), milliseconds.end());
    }
};

TEST_F(HandOver, ShowsNoTornAndNoBlackPictureAndNoLongGap) {
    constexpr int switches = 20;
    const Server one(pictureStream(1, 200));
    const Server two(pictureStream(2, 200));
    screen::FrameStore().reset(screen::VideoMode::pal);
    pid_t current = start(one, 1);
    ASSERT_TRUE(supervisor_.letShow(current));
    waitForFramesOf(current, 1);
    Watcher watcher;
    std::vector<pid_t> players{current};
    for (int i = 0; i < switches; ++i) {
        const pid_t next = start(i % 2 == 0 ? two : one, i % 2 == 0 ? 2 : 1);
        ASSERT_TRUE(switchOver(current, next)) << "switch " << i;
        current = next;
        players.push_back(next);
        waitForFramesOf(current, 3);
    }
    watcher.stop();
    const Gaps gaps(watcher.infos);
    ASSERT_EQ(gaps.milliseconds.size(), static_cast<std::size_t>(switches));
    EXPECT_EQ(gaps.returned, 0) << "a player drew after the next one had taken over";
    EXPECT_EQ(watcher.unreadable, 0);
    EXPECT_EQ(watcher.strange, 0);
    EXPECT_GT(watcher.seen, switches * 3);
    std::printf(
        "%d switches, %d pictures looked at; gap between old and new: median %.1f ms, worst %.1f ms\n",
        switches, watcher.seen.load(), gaps.milliseconds[switches / 2], gaps.milliseconds.back());
    // Generous limits (the printed figures are much lower): tests share the machine with other programs.
    EXPECT_LT(gaps.milliseconds[switches / 2], 40);
    EXPECT_LT(gaps.milliseconds.back(), 400);
    std::int64_t longest = 0;
    for (std::size_t i = 1; i < watcher.infos.size(); ++i)
        longest = std::max(longest, watcher.infos[i].time - watcher.infos[i - 1].time);
    std::printf("longest time between two pictures: %.1f ms\n", static_cast<double>(longest) / 1000);
}

TEST_F(HandOver, BetweenVideoModesShowsNoBlackPicture) {
    const Server one(pictureStream(1, 200));
    const Server two(pictureStream(2, 200));
    pid_t current = start(one, 1, "pal");
    ASSERT_TRUE(supervisor_.letShow(current));
    waitForFramesOf(current, 2);
    for (const char* mode : {"ntsc", "pal"}) {
        const pid_t next = start(two, 2, mode);
        ASSERT_TRUE(switchOver(current, next));
        current = next;
        waitForFramesOf(current, 2);
        screen::FrameStore store;
        EXPECT_STREQ(formatOf(store.mode()).name, mode);
        EXPECT_LT(store.blankedAt(), store.newestInfo().time);
    }
}

TEST_F(HandOver, NewPlayerThatDiesBeforeItShowsLeavesTheOldOneShowing) {
    const Server one(pictureStream(1, 250));
    const Server two(pictureStream(2, 250));
    const pid_t old = start(one, 1);
    ASSERT_TRUE(supervisor_.letShow(old));
    for (const int barrier : {0, 1}) {
        const pid_t next = start(two, 2);
        ASSERT_TRUE(supervisor_.arrived(next, 0));
        if (barrier == 1) {
            supervisor_.release(0, {next});
            ASSERT_TRUE(supervisor_.arrived(next, 1));
        }
        kill(next, SIGKILL);
        EXPECT_EQ(supervisor_.end(next), -SIGKILL);
        waitForFramesOf(old, 3);
        EXPECT_EQ(screen::FrameStore().newestInfo().pid, old);
    }
}

TEST_F(HandOver, OldPlayerThatIsKilledLeavesTheScreenToTheNext) {
    const Server one(pictureStream(1, 250));
    const Server two(pictureStream(2, 250));
    const pid_t old = start(one, 1);
    ASSERT_TRUE(supervisor_.letShow(old));
    waitForFramesOf(old, 2);
    const pid_t next = start(two, 2);
    ASSERT_TRUE(supervisor_.arrived(next, 0));
    kill(old, SIGKILL);
    EXPECT_EQ(supervisor_.end(old), -SIGKILL);
    ASSERT_TRUE(supervisor_.letShow(next));
    waitForFramesOf(next, 2);
    EXPECT_EQ(screen::FrameStore().newestInfo().pid, next);
}

} // namespace
} // namespace player
