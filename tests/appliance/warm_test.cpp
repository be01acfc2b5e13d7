// Sources that the gateway keeps warm, with real encoders and players.
#include "tests/appliance/warm_fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using appliance::eventually;
using appliance::fromEncoder;
using appliance::fromKeeper;
using appliance::Warm;

class WarmKind : public Warm, public testing::WithParamInterface<const char*> {};

} // namespace

TEST_P(WarmKind, IsPlayedFromTheKeeper) {
    add(GetParam());
    add(GetParam());
    start();
    detectAll();
    ASSERT_TRUE(keeps(0)) << gateway->log();
    const std::size_t before = lines(fromKeeper);
    decoder->ctl({"select", "0"});
    ASSERT_TRUE(decoder->showsMoving(0)) << decoder->log();
    EXPECT_EQ(lines(fromKeeper), before + 1) << decoder->log();
    EXPECT_EQ(report(0)->players, 1);
    EXPECT_EQ(lines(fromEncoder), 0U);
}

INSTANTIATE_TEST_SUITE_P(All, WarmKind,
                         testing::Values("mjpeg", "mpeg2", "sdp", "rtsp-unicast", "rtsp-multicast",
                                         "rtsp-tcp", "rtsp-http"),
                         [](const testing::TestParamInfo<const char*>& kind) {
                             std::string name = kind.param;
                             std::erase(name, '-');
                             return name;
                         });

TEST_F(Warm, OneSessionAtTheEncoderIsEnough) {
    add("mjpeg");
    add("mjpeg");
    start();
    detectAll();
    ASSERT_TRUE(keeps(0) && keeps(1));
    const std::size_t before = decoder->encoder(0).requests().size();
    decoder->ctl({"select", "0"});
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_EQ(decoder->encoder(0).requests().size(), before);
}

TEST_F(Warm, NothingIsKeptUnlessItIsAskedFor) {
    decoder->set("Warm.Sources", "none");
    add("mjpeg");
    add("mjpeg");
    start();
    detectAll();
    appliance::pause(std::chrono::milliseconds(800));
    EXPECT_FALSE(report(0) || report(1));
    decoder->ctl({"set", "Encoder.mjpeg 2.Warm", "yes"});
    EXPECT_TRUE(keeps(1));
    EXPECT_FALSE(report(0));
    decoder->ctl({"set", "Warm.Sources", "all"});
    EXPECT_TRUE(keeps(0));
}

TEST_F(Warm, TheSourceThatTheButtonBringsNextIsKept) {
    decoder->set("Warm.Sources", "next");
    for (int i = 0; i < 3; ++i)
        add("mjpeg");
    start();
    detectAll();
    EXPECT_TRUE(keeps(0)) << "2 is shown";
    EXPECT_TRUE(eventually([] { return !report(1); }));
    decoder->ctl({"button"});
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_GE(lines(fromKeeper), 1U);
    EXPECT_TRUE(keeps(1));
    EXPECT_EQ(report(0)->players, 1) << "it stays, because it is shown";
}

TEST_F(Warm, MoreThanTheLimitIsNotKept) {
    decoder->set("Warm.MaxSources", "1");
    for (int i = 0; i < 3; ++i)
        add("mjpeg");
    start();
    detectAll();
    EXPECT_TRUE(keeps(0)) << "the next one is the most important";
    EXPECT_TRUE(eventually([] { return !report(1) && !report(2); }));
}

TEST_F(Warm, TheMemoryHasALimit) {
    decoder->set("Warm.MaxMemory", "1");
    add("rtsp-tcp",
        {"--width", "1920", "--height", "1080", "--codec", "h264", "--bitrate", "16000", "--gop", "250"});
    start();
    detectAll();
    ASSERT_TRUE(eventually([] { return report(0).has_value(); }));
    constexpr std::size_t limit = 1 << 20;
    const bool refused = eventually(
        [&] {
            const auto one = report(0);
            EXPECT_LE(one ? one->bytes : 0, limit);
            return one && one->reason == "needs more memory than Warm.MaxMemory allows";
        },
        appliance::Seconds(30));
    EXPECT_TRUE(refused) << report(0)->bytes << " bytes, " << report(0)->reason;
    EXPECT_TRUE(decoder->showsMoving(0));
}

TEST_F(Warm, AStreamThatStandsStillIsNotHandedOut) {
    add("mjpeg");
    add("mjpeg");
    start();
    detectAll();
    ASSERT_TRUE(keeps(0));
    decoder->encoder(0).process().signal(SIGSTOP);
    EXPECT_TRUE(eventually([] {
        const auto one = report(0);
        return one && !one->kept && one->reason == "sends nothing";
    }));
    decoder->encoder(0).process().signal(SIGCONT);
    EXPECT_TRUE(keeps(0));
}

TEST_F(Warm, WhatIsNoLongerDetectedIsClosed) {
    add("mjpeg");
    add("mjpeg");
    start();
    detectAll();
    ASSERT_TRUE(keeps(0));
    decoder->ctl({"set", "Encoder.mjpeg 1.Address", "127.0.9.9"}); // nobody is there
    decoder->ctl({"apply"});
    EXPECT_TRUE(eventually([] { return !report(0); })) << decoder->ctl({"source", "0"}).output;
    EXPECT_TRUE(report(1));
}

// 5 rounds; WARM_KILLS has another number, for a long run by hand.
TEST_F(Warm, APlayerGoesOnWhenTheKeeperIsKilled) {
    add("mjpeg");
    add("rtsp-tcp", {"--gop", "5"});
    start();
    detectAll();
    const char* wanted = std::getenv("WARM_KILLS");
    const int kills = std::clamp(wanted == nullptr ? 5 : std::atoi(wanted), 1, 200);
    for (int round = 0; round < kills; ++round) {
        const int source = round % 2;
        ASSERT_TRUE(keeps(source)) << "round " << round << '\n' << gateway->log();
        decoder->ctl({"select", std::to_string(source)});
        ASSERT_TRUE(decoder->showsMoving(source)) << "round " << round;
        const int player = decoder->playerPid();
        const std::size_t before = lines(fromEncoder);
        gateway->process().signal(SIGKILL);
        EXPECT_TRUE(decoder->waitForLog(fromEncoder, before + 1)) << "round " << round;
        EXPECT_TRUE(decoder->showsMoving(source)) << "round " << round;
        EXPECT_EQ(decoder->playerPid(), player) << "round " << round;
        gateway->start();
    }
}

TEST_F(Warm, AnotherUserCannotConnect) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to become another user";
    add("mjpeg");
    start();
    detectAll();
    ASSERT_TRUE(eventually([] { return streams::askKeeper().has_value(); }));
    const std::string folder = decoder->root() + "/run/decoder";
    for (std::filesystem::path path = folder; path != path.root_path() && path != "/tmp";
         path = path.parent_path())
        std::filesystem::permissions(path, std::filesystem::perms::others_exec,
                                     std::filesystem::perm_options::add);
    const auto connects = [] {
        const pid_t child = fork();
        if (child == 0) {
            constexpr uid_t nobody = 65534;
            const bool changed =
                setresgid(nobody, nobody, nobody) == 0 && setresuid(nobody, nobody, nobody) == 0;
            _exit(!changed ? 2 : streams::askKeeper().has_value() ? 1 : 0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    };
    EXPECT_EQ(connects(), 0) << "the file's rights keep it out";
    std::filesystem::permissions(folder + "/warm.sock", std::filesystem::perms::all);
    EXPECT_EQ(connects(), 0) << "the keeper looks who it is";
    EXPECT_TRUE(streams::askKeeper().has_value());
}

TEST_F(Warm, ACameraOfTheGatewayIsReceivedOnce) {
    add("mjpeg");
    decoder->addSource("Yard", {{"URL", "http://127.0.1.1/vexo-cgi/mjpg/video.cgi?camera=1"}});
    start();
    ASSERT_TRUE(decoder->showsMoving(0)) << decoder->log();
    decoder->ctl({"select", "1"});
    EXPECT_TRUE(eventually([this] { return decoder->currentSource() == 1 && keeps(1); })) << gateway->log();
    decoder->ctl({"select", "0"});
    ASSERT_TRUE(eventually([this] { return decoder->currentSource() == 0; }));
    const std::size_t before = lines(fromKeeper);
    const std::size_t requests = decoder->encoder(0).requests().size();
    decoder->ctl({"select", "1"});
    EXPECT_TRUE(
        eventually([this] { return decoder->currentSource() == 1 && report(1) && report(1)->players == 1; }));
    EXPECT_EQ(lines(fromKeeper), before + 1);
    EXPECT_EQ(decoder->encoder(0).requests().size(), requests);
}
