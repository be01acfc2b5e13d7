// mjpeg_player from its start to its end: barriers, signals, the screen.
#include "appliance/players/programs/mjpeg_player_fixture.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace player {
namespace {

TEST_F(MjpegPlayer, MeetsBothBarriersAndShowsOnlyAfterTheSecondRelease) {
    const Server server(pictureStream(7, 250));
    const std::int64_t begin = gettimeusec();
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    std::printf("from start to barrier 0: %.0f ms\n", static_cast<double>(gettimeusec() - begin) / 1000);
    EXPECT_FALSE(supervisor_.hasArrived(pid, 1));
    supervisor_.release(0, {pid});
    ASSERT_TRUE(supervisor_.arrived(pid, 1));
    EXPECT_EQ(store_.newestInfo().number, 0U) << "it drew before its release";
    const std::int64_t released = gettimeusec();
    supervisor_.release(1, {pid});
    ASSERT_GE(store_.wait(0, 30'000), 1U);
    const screen::FrameInfo first = store_.infosSince(0).front();
    std::printf("from the release to its first picture on the screen: %.1f ms\n",
                static_cast<double>(first.time - released) / 1000);
    EXPECT_EQ(first.pid, pid);
    EXPECT_EQ(first.source, 3);
    waitForFrames(3);
    const auto seen = mark();
    ASSERT_TRUE(seen);
    EXPECT_EQ(seen->source, 7);
    waitForFrames(2);
    EXPECT_GT(mark()->counter, seen->counter) << "it does not move";
}

TEST_F(MjpegPlayer, AfterHangupItShowsUntilItIsReleased) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForFrames(2);
    kill(pid, SIGHUP);
    ASSERT_TRUE(supervisor_.arrived(pid, 1, 2));
    const std::uint64_t atArrival = store_.newestInfo().number;
    EXPECT_GT(waitForFrames(3), atArrival) << "it stopped before its release";
    supervisor_.release(1, {pid});
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(MjpegPlayer, HangupBeforeItShowsTakesEffectAfterItShows) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    supervisor_.release(0, {pid});
    ASSERT_TRUE(supervisor_.arrived(pid, 1));
    kill(pid, SIGHUP);
    supervisor_.release(1, {pid});
    ASSERT_TRUE(supervisor_.arrived(pid, 1, 2));
    EXPECT_GE(store_.newestInfo().number, 1U);
    supervisor_.release(1, {pid});
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(MjpegPlayer, EndsAtOnceOnInterruptAndTermination) {
    for (const int number : {SIGINT, SIGTERM}) {
        const Server silent({scripted::readRequest(), scripted::stall()});
        const pid_t connecting = start(silent);
        ASSERT_TRUE(silent.waitForRequests(1));
        kill(connecting, number);
        EXPECT_EQ(supervisor_.end(connecting), 0);

        const Server server(pictureStream(7, 250));
        const pid_t waiting = start(server);
        ASSERT_TRUE(supervisor_.arrived(waiting, 0));
        kill(waiting, number);
        EXPECT_EQ(supervisor_.end(waiting), 0);

        const pid_t showing = start(server);
        ASSERT_TRUE(supervisor_.letShow(showing));
        waitForPictureOf(showing);
        kill(showing, number);
        EXPECT_EQ(supervisor_.end(showing), 0);
    }
}

TEST_F(MjpegPlayer, HangupBeforeTheFirstPictureEndsIt) {
    const Server silent({scripted::readRequest(), scripted::stall()});
    const pid_t pid = start(silent);
    ASSERT_TRUE(silent.waitForRequests(1));
    kill(pid, SIGHUP);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(MjpegPlayer, EndsWhenItsBarrierIsRemoved) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    supervisor_.removeBarrier(pid);
    EXPECT_EQ(supervisor_.end(pid), 0);
}

TEST_F(MjpegPlayer, EndsWithoutASupervisor) {
    const Server server(pictureStream(7, 250));
    supervisor_.removeQueue();
    EXPECT_EQ(supervisor_.end(start(server)), 0);
}

TEST_F(MjpegPlayer, DiesWithItsSupervisor) {
    const Server server(pictureStream(7, 250));
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    int pipes[2];
    ASSERT_EQ(pipe(pipes), 0);
    const pid_t parent = fork();
    if (parent == 0) {
        const pid_t pid = supervisor_.start(PLAYER, line(server.port()));
        const bool told = write(pipes[1], &pid, sizeof pid) == sizeof pid;
        for (;;)
            pause();
        _exit(told ? 0 : 1);
    }
    pid_t pid = 0;
    ASSERT_EQ(read(pipes[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    kill(parent, SIGKILL);
    EXPECT_EQ(waitpid(parent, nullptr, 0), parent);
    int status = -1;
    EXPECT_EQ(waitpid(pid, &status, 0), pid) << "it is not our child now, or did not end";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

TEST_F(MjpegPlayer, CredentialsCannotBeSeenOnItsCommandLine) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server, {"-u", "the-user", "-p", "the-password"});
    ASSERT_TRUE(supervisor_.arrived(pid, 0));
    std::ifstream file("/proc/" + std::to_string(pid) + "/cmdline");
    const std::string seen((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_THAT(seen, HasSubstr("127.0.0.1"));
    EXPECT_THAT(seen, Not(HasSubstr("the-user")));
    EXPECT_THAT(seen, Not(HasSubstr("the-password")));
}

bool isNear(std::uint32_t colour, std::uint32_t wanted) {
    bool near = true;
    for (const int shift : {0, 8, 16})
        near = near && std::abs(static_cast<int>(colour >> shift & 0xff) -
                                static_cast<int>(wanted >> shift & 0xff)) < 24;
    return near;
}

TEST_F(MjpegPlayer, HandsInThePictureInItsOwnSize) {
    struct Case {
        int width, height;
        int aspectNumerator, aspectDenominator;
    };
    for (const Case& one : {Case{640, 480, 1, 1}, Case{352, 288, 12, 11}, Case{704, 576, 12, 11},
                            Case{1280, 720, 1, 1}, Case{641, 361, 1, 1}, Case{480, 640, 1, 1}}) {
        scripted::Script script{scripted::readRequest(), scripted::send(multipartHeader)};
        for (int i = 0; i < 3; ++i)
            script.push_back(scripted::send(part(quarteredJpeg(one.width, one.height))));
        script.push_back(scripted::stall());
        const Server server(script);
        const pid_t pid = start(server);
        ASSERT_TRUE(supervisor_.letShow(pid));
        waitForPictureOf(pid);
        screen::Frame frame;
        ASSERT_TRUE(store_.newest(frame));
        EXPECT_EQ(frame.shape.width, one.width);
        EXPECT_EQ(frame.shape.height, one.height);
        EXPECT_EQ(frame.shape.aspectNumerator, one.aspectNumerator);
        EXPECT_EQ(frame.shape.aspectDenominator, one.aspectDenominator);
        EXPECT_TRUE(frame.shape.fullRange) << "as in every JPEG file";
        EXPECT_PRED2(isNear, colourAt(frame, 0, 0), 0xff0000U) << one.width;
        EXPECT_PRED2(isNear, colourAt(frame, one.width - 1, one.height / 2 - 8), 0x00ff00U) << one.width;
        EXPECT_PRED2(isNear, colourAt(frame, 0, one.height - 1), 0x0000ffU) << one.width;
        EXPECT_PRED2(isNear, colourAt(frame, one.width - 1, one.height / 2 + 8), 0xffffffU) << one.width;
        kill(pid, SIGTERM);
        EXPECT_EQ(supervisor_.end(pid), 0);
    }
}

TEST_F(MjpegPlayer, PicturesOfEightThousandPixelsAreScaledDown) {
    const std::string large = part(quarteredJpeg(7680, 4320));
    const Server server(
        {scripted::readRequest(), scripted::send(multipartHeader), scripted::send(large), scripted::stall()});
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForPictureOf(pid);
    screen::Frame frame;
    ASSERT_TRUE(store_.newest(frame));
    EXPECT_EQ(frame.shape.width, 3840);
    EXPECT_EQ(frame.shape.height, 2160);
    EXPECT_PRED2(isNear, colourAt(frame, 0, 0), 0xff0000U);
    EXPECT_PRED2(isNear, colourAt(frame, 3839, 0), 0x00ff00U);
    EXPECT_PRED2(isNear, colourAt(frame, 0, 2159), 0x0000ffU);
    EXPECT_PRED2(isNear, colourAt(frame, 3839, 2159), 0xffffffU);
}

TEST_F(MjpegPlayer, TurnedPictureIsMarkedAsTurned) {
    const Server server({scripted::readRequest(), scripted::send(multipartHeader),
                         scripted::send(part(quarteredJpeg(720, 576))), scripted::stall()});
    const pid_t pid = start(server, {"-f"});
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForPictureOf(pid);
    screen::Frame frame;
    ASSERT_TRUE(store_.newest(frame));
    EXPECT_EQ(frame.shape.turn, screen::Turn::half);
    EXPECT_PRED2(isNear, colourAt(frame, 20, 20), 0xff0000U);
}

TEST_F(MjpegPlayer, SizeChangesInMidStreamAndIsNeverMixed) {
    scripted::Script script{scripted::readRequest(), scripted::send(multipartHeader)};
    const std::vector<std::pair<int, int>> sizes{
        {640, 480}, {1280, 720}, {352, 288}, {1920, 1080}, {321, 243}};
    for (int i = 0; i < 250; ++i) {
        const auto& [width, height] = sizes[static_cast<std::size_t>(i / 3) % sizes.size()];
        script.push_back(later(part(quarteredJpeg(width, height)), milliseconds(20)));
    }
    const Server server(script);
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForPictureOf(pid);
    std::set<int> widths;
    const std::int64_t until = gettimeusec() + 30'000'000;
    std::uint64_t number = 0;
    while (widths.size() < sizes.size() && gettimeusec() < until && supervisor_.running(pid)) {
        number = store_.wait(number, 1000);
        screen::Frame frame;
        ASSERT_TRUE(store_.newest(frame));
        widths.insert(frame.shape.width);
        const int right = frame.shape.width - 1;
        const int bottom = frame.shape.height - 1;
        EXPECT_PRED2(isNear, colourAt(frame, 0, 0), 0xff0000U) << frame.shape.width;
        EXPECT_PRED2(isNear, colourAt(frame, right, 0), 0x00ff00U) << frame.shape.width;
        EXPECT_PRED2(isNear, colourAt(frame, 0, bottom), 0x0000ffU) << frame.shape.width;
        EXPECT_PRED2(isNear, colourAt(frame, right, bottom), 0xffffffU) << frame.shape.width;
    }
    EXPECT_EQ(widths.size(), sizes.size());
}

TEST_F(MjpegPlayer, ScreenGetsTheModeOfThePlayer) {
    ASSERT_TRUE(store_.reset(screen::VideoMode::pal));
    const Server server(pictureStream(7, 250));
    std::vector<std::string> arguments = line(server.port());
    arguments[1] = "ntsc";
    const pid_t pid = supervisor_.start(PLAYER, arguments);
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForFrames(2);
    EXPECT_EQ(store_.mode(), screen::VideoMode::ntsc);
    EXPECT_EQ(mark()->source, 7);
}

TEST_F(MjpegPlayer, SurvivesAResetAndABlankScreen) {
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server);
    ASSERT_TRUE(supervisor_.letShow(pid));
    waitForFrames(2);
    screen::FrameStore other;
    ASSERT_TRUE(other.reset(screen::VideoMode::ntsc));
    waitForFrames(2);
    EXPECT_EQ(mark()->source, 7);
    ASSERT_TRUE(other.blank());
    waitForFrames(2);
    EXPECT_GT(store_.newestInfo().time, store_.blankedAt());
    EXPECT_TRUE(supervisor_.running(pid));
}

TEST_F(MjpegPlayer, UsageErrorIsTwo) {
    EXPECT_EQ(supervisor_.end(supervisor_.start(PLAYER, {"-m", "secam", "127.0.0.1"})), 2);
    EXPECT_EQ(supervisor_.end(supervisor_.start(PLAYER, {})), 2);
}

TEST_F(MjpegPlayer, SoundThatFailsDoesNotDisturbThePicture) {
    // The script answers the request for sound with pictures.
    const Server server(pictureStream(7, 250));
    const pid_t pid = start(server, {"-a"});
    ASSERT_TRUE(supervisor_.letShow(pid));
    ASSERT_TRUE(server.waitForRequests(2));
    waitForFrames(10);
    EXPECT_TRUE(supervisor_.running(pid));
    EXPECT_THAT(testing::PrintToString(server.requests()), HasSubstr("/vexo-cgi/audio/receive.cgi"));
}

} // namespace
} // namespace player
