// The fixture of the tests of mjpeg_player.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/players/testing/fake_supervisor.h"
#include "appliance/players/testing/test_pictures.h"
#include "appliance/screen/frame_store.h"
#include "tests/appliance/isolation.h"
#include "tests/support/screen_picture.h"

#include <libcommon/clock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

namespace player {

using scripted::Server;
using std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

class MjpegPlayer : public testing::Test {
protected:
    // The test has its own message queues where the machine allows it.
    MjpegPlayer() : isolated_(appliance::isolate()) {}

    std::vector<std::string> line(unsigned short port, std::vector<std::string> more = {},
                                  int patienceMs = 10'000) {
        std::vector<std::string> arguments{"-m",
                                           "pal",
                                           "-o",
                                           "tv",
                                           "-n",
                                           "3",
                                           "-v",
                                           "-r",
                                           std::to_string(patienceMs),
                                           "-P",
                                           std::to_string(port)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.emplace_back("127.0.0.1");
        return arguments;
    }
    pid_t start(unsigned short port, std::vector<std::string> more = {}, int patienceMs = 10'000) {
        return supervisor_.start(PLAYER, line(port, std::move(more), patienceMs));
    }
    pid_t start(const Server& server, std::vector<std::string> more = {}, int patienceMs = 10'000) {
        return start(server.port(), std::move(more), patienceMs);
    }
    // The mark of the newest picture on the screen.
    std::optional<FrameMark> mark() {
        screen::Frame frame;
        if (!store_.newest(frame))
            return std::nullopt;
        return screen::markIn(frame);
    }
    std::uint64_t waitForFrames(std::uint64_t count) {
        std::uint64_t number = store_.newestInfo().number;
        const std::uint64_t wanted = number + count;
        const std::int64_t until = gettimeusec() + 30'000'000;
        while (number < wanted && gettimeusec() < until)
            number = store_.wait(number, 1000);
        return number;
    }
    // For streams that may have only one picture, which may already be on the screen.
    void waitForPictureOf(pid_t pid) {
        const std::int64_t until = gettimeusec() + 30'000'000;
        while (store_.newestInfo().pid != pid && gettimeusec() < until)
            store_.wait(store_.newestInfo().number, 20);
        EXPECT_EQ(store_.newestInfo().pid, pid);
    }
    // The exit status of a player that plays this script.
    std::optional<int> statusAgainst(scripted::Script script, int patienceMs = 400,
                                     std::vector<std::string> more = {}) {
        const Server server(std::move(script));
        return supervisor_.end(start(server, std::move(more), patienceMs));
    }

    const bool isolated_;
    FakeSupervisor supervisor_;
    screen::FrameStore store_;
};

} // namespace player
