// Our players and our encoder's gateway receive what ffmpeg and gst-launch-1.0 publish. A player and ffmpeg read one
// stream at the same time.
#include "appliance/players/testing/player_test.h"
#include "tests/peers/peer_program.h"

#include <algorithm>
#include <functional>
#include <set>
#include <sstream>

namespace peers {
namespace {

constexpr const char* pattern = "testsrc2=size=352x288:rate=25";

long commentLines(const std::string& text) {
    std::istringstream lines(text);
    long count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.starts_with('#') ? 1 : 0;
    return count;
}

class Publishing : public player::PlayerTest {
protected:
    void SetUp() override {
        if (!network_.empty())
            GTEST_SKIP() << network_;
        if (const std::string reason = missing({"ffmpeg", "gst-launch-1.0"}); !reason.empty())
            GTEST_SKIP() << reason;
    }

    // ffmpeg in real time.
    static Program publish(std::vector<std::string> output) {
        output.insert(output.begin(), {"-v", "error", "-nostdin", "-re", "-f", "lavfi", "-i", pattern});
        return {"ffmpeg", std::move(output)};
    }

    // ffmpeg serves one client only.
    static Program publishAt(int port, const std::string& path, std::vector<std::string> format) {
        format.insert(format.end(), {"-listen", "1", "http://127.0.0.1:" + std::to_string(port) + path});
        Program program = publish(std::move(format));
        EXPECT_TRUE(appliance::eventually([port] { return listens(port); })) << program.output();
        return program;
    }

    pid_t start(const std::string& player, const std::vector<std::string>& where) {
        std::vector<std::string> arguments{"-m", "pal", "-o", "tv", "-n", "3", "-v", "-r", "30000"};
        arguments.insert(arguments.end(), where.begin(), where.end());
        return supervisor_.start(std::string(HOUSE_PROGRAMS) + "/" + player, arguments);
    }

    // Whether the screen shows that many different pictures.
    bool differentPictures(std::size_t count) {
        std::set<std::size_t> seen;
        std::uint64_t number = 0;
        screen::Frame frame;
        return appliance::eventually([&] {
            number = store_.wait(number, 100);
            if (store_.newest(frame))
                seen.insert(std::hash<std::string_view>{}(
                    {reinterpret_cast<const char*>(frame.bytes.data()), frame.bytes.size()}));
            return seen.size() >= count;
        });
    }

    void expectShown(pid_t player, const Program& publisher) {
        ASSERT_TRUE(supervisor_.letShow(player)) << player::FakeSupervisor::log() << publisher.output();
        EXPECT_TRUE(differentPictures(10)) << player::FakeSupervisor::log() << publisher.output();
        EXPECT_EQ(store_.newestInfo().pid, player);
    }
};

TEST_F(Publishing, MjpegPlayerShowsWhatFfmpegServes) {
    const int port = freePort();
    const Program publisher = publishAt(port, "/vexo-cgi/mjpg/video.cgi", {"-c:v", "mjpeg", "-f", "mpjpeg"});
    expectShown(start("mjpeg_player", {"-P", std::to_string(port), "127.0.0.1"}), publisher);
}

TEST_F(Publishing, UnicastplayerShowsWhatFfmpegServes) {
    for (const char* format : {"mpeg2video", "mpegts"}) {
        const int port = freePort();
        const Program publisher =
            publishAt(port, "/vexo-cgi/mpeg2/video.cgi", {"-c:v", "mpeg2video", "-q:v", "5", "-f", format});
        expectShown(start("unicastplayer", {"-P", std::to_string(port), "127.0.0.1"}), publisher);
    }
}

TEST_F(Publishing, MulticastplayerShowsWhatFfmpegSends) {
    const Program publisher =
        publish({"-c:v", "mpeg2video", "-q:v", "5", "-f", "rtp", "rtp://239.1.2.3:5004?ttl=1"});
    expectShown(start("multicastplayer", {"239.1.2.3", "5004"}), publisher);
}

// From a file that ffmpeg makes, because GStreamer 1.22 cannot encode MPEG-2 on its own.
TEST_F(Publishing, MulticastplayerShowsWhatGStreamerSends) {
    const Folder folder;
    const appliance::Finished made =
        run("ffmpeg", {"-v", "error", "-nostdin", "-f", "lavfi", "-i", pattern, "-t", "30", "-c:v",
                       "mpeg2video", "-q:v", "5", folder.file("clip.ts")});
    ASSERT_EQ(made.status, 0) << made.errors;
    const Program publisher("gst-launch-1.0",
                            {"-q", "filesrc", "location=" + folder.file("clip.ts"), "!", "tsdemux", "!",
                             "mpegvideoparse", "!", "rtpmpvpay", "!", "udpsink", "host=239.1.2.4",
                             "port=5004", "auto-multicast=false", "ttl-mc=1"});
    expectShown(start("multicastplayer", {"239.1.2.4", "5004"}), publisher);
}

TEST_F(Publishing, GatewayServesWhatFfmpegServes) {
    const int port = freePort();
    const Program publisher = publishAt(port, "/", {"-c:v", "mpeg2video", "-q:v", "5", "-f", "mpegts"});
    const VideoEncoder gateway(
        {"--kinds", "mjpeg", "--input", "http://127.0.0.1:" + std::to_string(port) + "/"});
    const pid_t shown = start("mjpeg_player", {"-P", std::to_string(gateway.http()), "127.0.0.1"});
    expectShown(shown, publisher);
}

TEST_F(Publishing, PlayerAndFfmpegReadOneStreamAtTheSameTime) {
    const VideoEncoder encoder({"--kinds", "mjpeg", "--mark", "7", "--width", "352", "--height", "288"});
    const pid_t shown = start("mjpeg_player", {"-P", std::to_string(encoder.http()), "127.0.0.1"});
    ASSERT_TRUE(supervisor_.letShow(shown)) << player::FakeSupervisor::log();
    ASSERT_TRUE(moves(7));
    const std::uint64_t before = store_.newestInfo().number;
    const appliance::Finished reader =
        run("ffmpeg", {"-v", "error", "-nostdin", "-f", "mpjpeg", "-i",
                       "http://127.0.0.1:" + std::to_string(encoder.http()) + "/vexo-cgi/mjpg/video.cgi",
                       "-frames:v", "25", "-f", "framemd5", "-"});
    const std::vector<screen::FrameInfo> meanwhile = store_.infosSince(before);
    EXPECT_EQ(reader.status, 0) << reader.errors;
    EXPECT_EQ(std::count(reader.output.begin(), reader.output.end(), '\n'), 25 + commentLines(reader.output));
    EXPECT_GE(meanwhile.size(), 10U) << "of the 25 that ffmpeg took";
    EXPECT_TRUE(moves(7));
}

} // namespace
} // namespace peers
