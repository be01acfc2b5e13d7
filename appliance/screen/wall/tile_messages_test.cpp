#include "appliance/screen/wall/tile_messages.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace screen {
namespace {

class TileMessages : public testing::Test {
protected:
    TileMessages() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0); }
    ~TileMessages() override {
        close(ends[0]);
        endTile();
    }
    void endTile() {
        if (ends[1] != -1)
            close(ends[1]);
        ends[1] = -1;
    }
    int wall() const { return ends[0]; }
    int tile() const { return ends[1]; }

    int ends[2]{-1, -1};
};

OverlayImage image(Rectangle at, std::uint32_t colour, std::uint64_t version) {
    return {at, std::vector<std::uint32_t>(static_cast<std::size_t>(at.width * at.height), colour), version};
}

TileReport report() {
    return {.supervisor = true,
            .blankedAt = 1'234'567'890'123,
            .fit = Fit::crop,
            .screen = {960, 540},
            .overlays = {image({10, 20, 300, 40}, 0x80112233, 7), image({-5, 500, 3, 2}, 0xffffffff, 8)}};
}

int openFiles() {
    int count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

TEST_F(TileMessages, OrdersArriveInTheirOrder) {
    EXPECT_TRUE(sendOrder(wall(), TileSize{{1920, 1080}}));
    EXPECT_TRUE(sendOrder(wall(), TileKey{{KeyKind::digit, 7}, true}));
    EXPECT_TRUE(sendOrder(wall(), TileKey{{KeyKind::button, 0}, false}));
    TileOrder order;
    ASSERT_EQ(receiveOrder(tile(), order), Received::message);
    EXPECT_EQ(std::get<TileSize>(order).size, (Size{1920, 1080}));
    ASSERT_EQ(receiveOrder(tile(), order), Received::message);
    EXPECT_EQ(std::get<TileKey>(order).key.kind, KeyKind::digit);
    EXPECT_EQ(std::get<TileKey>(order).key.digit, 7);
    EXPECT_TRUE(std::get<TileKey>(order).down);
    ASSERT_EQ(receiveOrder(tile(), order), Received::message);
    EXPECT_EQ(std::get<TileKey>(order).key.kind, KeyKind::button);
    EXPECT_FALSE(std::get<TileKey>(order).down);
    EXPECT_EQ(receiveOrder(tile(), order), Received::nothing);
}

TEST_F(TileMessages, ReportArrivesWithItsPixels) {
    EXPECT_TRUE(sendReport(tile(), report()));
    TileReport got;
    ASSERT_EQ(receiveReport(wall(), got), Received::message);
    EXPECT_TRUE(got.supervisor);
    EXPECT_EQ(got.blankedAt, report().blankedAt);
    EXPECT_EQ(got.fit, Fit::crop);
    EXPECT_EQ(got.screen, (Size{960, 540}));
    ASSERT_EQ(got.overlays.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(got.overlays[i].at, report().overlays[i].at);
        EXPECT_EQ(got.overlays[i].version, report().overlays[i].version);
        EXPECT_EQ(got.overlays[i].pixels, report().overlays[i].pixels);
    }
}

TEST_F(TileMessages, LargeOverlaysFit) {
    TileReport large = report();
    large.overlays = {image({0, 0, 3840, 2160}, 0x01020304, 1), image({0, 0, 3840, 2160}, 0x05060708, 2)};
    EXPECT_TRUE(sendReport(tile(), large));
    TileReport got;
    ASSERT_EQ(receiveReport(wall(), got), Received::message);
    EXPECT_EQ(got.overlays[1].pixels, large.overlays[1].pixels);
}

TEST_F(TileMessages, NoDescriptorIsLeftOpen) {
    const int before = openFiles();
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(sendReport(tile(), report()));
        TileReport got;
        EXPECT_EQ(receiveReport(wall(), got), Received::message);
    }
    EXPECT_EQ(openFiles(), before);
}

TEST_F(TileMessages, OtherSideThatDoesNotReadIsNotWaitedFor) {
    int sent = 0;
    while (sent < 100'000 && sendReport(tile(), report()))
        ++sent;
    EXPECT_EQ(errno, EAGAIN) << sent;
    EXPECT_GT(sent, 3);
    EXPECT_LT(sent, 100'000);
}

TEST_F(TileMessages, EndOfTheOtherSideIsSeenAndDoesNotKill) {
    endTile();
    TileReport got;
    EXPECT_EQ(receiveReport(wall(), got), Received::ended);
    EXPECT_FALSE(sendOrder(wall(), TileSize{{1, 1}}));
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(TileMessages, ReportsThatCannotArriveAreNotSent) {
    TileReport bad = report();
    bad.overlays.assign(maxTileOverlays + 1, image({0, 0, 1, 1}, 0, 1));
    EXPECT_FALSE(sendReport(tile(), bad));
    bad = report();
    bad.screen = {0, 540};
    EXPECT_FALSE(sendReport(tile(), bad));
    TileReport got;
    EXPECT_EQ(receiveReport(wall(), got), Received::nothing);
}

TEST_F(TileMessages, BrokenMessagesEndTheConnection) {
    const char text[] = "hello";
    for (int round = 0; round < 2; ++round) {
        ASSERT_GT(send(tile(), text, sizeof text, 0), 0);
        TileReport got = report();
        EXPECT_EQ(receiveReport(wall(), got), Received::ended);
        EXPECT_EQ(got.overlays.size(), 2U) << "unchanged";
        ASSERT_GT(send(wall(), text, sizeof text, 0), 0);
        TileOrder order;
        EXPECT_EQ(receiveOrder(tile(), order), Received::ended);
    }
}

// The bytes of a real report with the descriptor left out, and with random changes.
TEST_F(TileMessages, GarbageIsRefused) {
    EXPECT_TRUE(sendReport(tile(), report()));
    std::string bytes(4096, '\0');
    const ssize_t size = recv(wall(), bytes.data(), bytes.size(), 0);
    ASSERT_GT(size, 0);
    bytes.resize(static_cast<std::size_t>(size));
    ASSERT_GT(send(tile(), bytes.data(), bytes.size(), 0), 0);
    TileReport got;
    EXPECT_EQ(receiveReport(wall(), got), Received::ended) << "without its pixels";
    std::mt19937 random(20261122);
    for (int round = 0; round < 5000; ++round) {
        std::string changed = bytes;
        for (int change = 0; change < 1 + round % 4; ++change)
            changed[random() % changed.size()] = static_cast<char>(random());
        ASSERT_GT(send(tile(), changed.data(), changed.size(), 0), 0);
        const Received received = receiveReport(wall(), got);
        EXPECT_TRUE(received == Received::ended || got.overlays.empty()) << "without their pixels";
    }
}

} // namespace
} // namespace screen
