// How long a player waits for its release from a barrier, and what ends the wait.
#include "appliance/players/testing/player_test.h"
#include "appliance/players/testing/test_pictures.h"

#include <libcommon/barriers.h>

#include <sys/msg.h>
#include <thread>

namespace player {
namespace {

using scripted::Server;
using testing::HasSubstr;

class Release : public PlayerTest {
protected:
    pid_t start(const Server& server, const char* releaseMs, const char* patienceMs = "30000") {
        return supervisor_.start(PLAYER, {"-n", "3", "-r", patienceMs, "-w", releaseMs, "-P",
                                          std::to_string(server.port()), "127.0.0.1"});
    }
};

TEST_F(Release, MissingAtAnyBarrierEndsThePlayer) {
    const Server server(pictureStream(7, 250));
    for (const int released : {0, 1, 2}) { // how many barriers release it before
        const pid_t pid = start(server, "300");
        ASSERT_TRUE(supervisor_.arrived(pid, 0));
        if (released > 0) {
            supervisor_.release(0, {pid});
            ASSERT_TRUE(supervisor_.arrived(pid, 1));
        }
        if (released > 1) {
            supervisor_.release(1, {pid});
            ASSERT_TRUE(moves(7));
            kill(pid, SIGHUP);
            ASSERT_TRUE(supervisor_.arrived(pid, 1, 2));
        }
        EXPECT_EQ(supervisor_.end(pid), 25) << "after " << released << " releases";
    }
    EXPECT_THAT(FakeSupervisor::log(),
                HasSubstr("mjpeg_player of source 3 ends with 25: not released from its barrier in time"));
}

// Any local user may take messages from a barrier's queue.
TEST_F(Release, TakenByAStrangerEndsThePlayer) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server, "500");
    // It waits at the queue before the player does, so the kernel gives it the message.
    bool taken = false;
    std::thread stranger([&] {
        char message[64];
        taken = msgrcv(getBarrierIPC(pid), message, 52, 0, 0) >= 0;
    });
    const bool arrived = supervisor_.arrived(pid, 0);
    supervisor_.release(0, {pid});
    stranger.join();
    ASSERT_TRUE(arrived);
    EXPECT_TRUE(taken);
    EXPECT_FALSE(supervisor_.hasArrived(pid, 1));
    EXPECT_EQ(supervisor_.end(pid), 25);
}

// The supervisor may take longer than the picture limit, for instance when a camera is slow to answer.
TEST_F(Release, IsAwaitedLongerThanThePictureLimit) {
    const Server server(pictureStream(7, 500));
    const pid_t pid = start(server, "60000", "5000");
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    EXPECT_EQ(supervisor_.end(pid, std::chrono::milliseconds(7000)), std::nullopt);
    supervisor_.release(0, {pid});
    ASSERT_TRUE(supervisor_.arrived(pid, 1));
    supervisor_.release(1, {pid});
    EXPECT_TRUE(moves(7));
}

// The limit applies only at the barriers.
TEST_F(Release, LimitDoesNotEndAPlayerThatShows) {
    const Server server(pictureStream(7, 500));
    const pid_t pid = start(server, "1000");
    ASSERT_TRUE(supervisor_.letShow(pid));
    EXPECT_TRUE(moves(7));
    EXPECT_EQ(supervisor_.end(pid, std::chrono::milliseconds(3000)), std::nullopt);
    kill(pid, SIGHUP);
    ASSERT_TRUE(supervisor_.arrived(pid, 1, 2));
    supervisor_.release(1, {pid});
    EXPECT_EQ(supervisor_.end(pid), 0);
}

} // namespace
} // namespace player
