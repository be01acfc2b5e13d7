// The fixture of the tests of the players.
#pragma once

#include "appliance/players/testing/fake_supervisor.h"

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame_store.h"
#include "tests/appliance/isolation.h"
#include "tests/fakes/network_namespace.h"
#include "tests/support/screen_picture.h"
#include "tests/support/scripted_server.h"

#include <libcommon/clock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <optional>
#include <string>
#include <utility>

namespace player {

class PlayerTest : public testing::Test {
protected:
    PlayerTest() : network_(ownNetwork()) {}

    // Gives the process its own message queues and network where the machine allows it. Does so once per process,
    // because threads of libraries stay in the network that they were started in. Returns "" or why it failed.
    static const std::string& ownNetwork() {
        static const std::string refused = (appliance::isolate(), enterNetworkNamespace());
        return refused;
    }

    // The mark of the newest picture on the screen.
    std::optional<FrameMark> mark() {
        screen::Frame frame;
        if (!store_.newest(frame))
            return std::nullopt;
        return screen::markIn(frame);
    }

    // Waits until the screen shows a moving picture of that source.
    bool moves(int source) {
        const std::int64_t until = gettimeusec() + 30'000'000;
        std::optional<int> first;
        std::uint64_t number = 0;
        while (gettimeusec() < until) {
            number = store_.wait(number, 1000);
            const auto seen = mark();
            if (!seen || seen->source != source)
                continue;
            if (!first)
                first = seen->counter;
            if (seen->counter > *first + 5)
                return true;
        }
        return false;
    }

    // A player from its start to its end: both barriers, a moving picture of that source, SIGHUP, the exit.
    void showsAndLeaves(pid_t pid, int source) {
        const std::int64_t begin = gettimeusec();
        ASSERT_TRUE(supervisor_.arrived(pid, 0)) << FakeSupervisor::log();
        std::printf("from start to barrier 0: %.0f ms\n", static_cast<double>(gettimeusec() - begin) / 1000);
        ASSERT_TRUE(supervisor_.letShow(pid));
        EXPECT_TRUE(moves(source)) << FakeSupervisor::log();
        kill(pid, SIGHUP);
        ASSERT_TRUE(supervisor_.arrived(pid, 1, 2));
        supervisor_.release(1, {pid});
        EXPECT_EQ(supervisor_.end(pid), 0);
    }

    const std::string network_; // why the process does not have its own network; "": it has one
    FakeSupervisor supervisor_;
    screen::FrameStore store_;
};

} // namespace player
