#include "appliance/players/showing/player_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace player {
namespace {

using streams::RtspTransport;
using testing::HasSubstr;

// A writable command line, like the one that main() gets.
class Line {
public:
    explicit Line(std::vector<std::string> arguments) : texts_(std::move(arguments)) {
        for (std::string& text : texts_)
            pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    int count() const { return static_cast<int>(texts_.size()); }
    char** argv() { return pointers_.data(); }
    const std::string& text(std::size_t index) const { return texts_[index]; }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

ParsedOptions parse(Kind kind, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), programName(kind));
    Line line(std::move(arguments));
    return parseOptions(kind, line.count(), line.argv());
}

TEST(PlayerOptions, FullMjpegLineOfTheSupervisor) {
    const auto parsed = parse(
        Kind::mjpeg,
        {"-u", "viewer", "-p", "secret", "-e", "-m", "pal",  "-o",        "tv", "-n",
         "3",  "-v",     "-r", "10000",  "-a", "-P", "8443", "127.0.0.1", "-t", "camera=1&resolution=640x480",
         "-f", "-i",     "a"});
    ASSERT_TRUE(parsed.options);
    const PlayerOptions& options = *parsed.options;
    EXPECT_EQ(options.user, "viewer");
    EXPECT_EQ(options.password, "secret");
    EXPECT_TRUE(options.https);
    EXPECT_EQ(options.mode, screen::VideoMode::pal);
    EXPECT_EQ(options.source, 3);
    EXPECT_TRUE(options.verbose);
    EXPECT_EQ(options.patienceMs, 10'000);
    EXPECT_TRUE(options.audio);
    EXPECT_EQ(options.port, 8443);
    EXPECT_EQ(options.host, "127.0.0.1");
    EXPECT_EQ(options.streamOptions, "camera=1&resolution=640x480");
    EXPECT_TRUE(options.turned);
    EXPECT_EQ(options.interlace, Interlace::automatic);
    EXPECT_FALSE(options.alone);
}

TEST(PlayerOptions, ShortestMjpegLineOfTheSupervisor) {
    const auto parsed = parse(Kind::mjpeg, {"-m", "ntsc", "-o", "tv", "-n", "0", "-r", "10000", "-P", "80",
                                            "camera.example", "-i", ""});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->mode, screen::VideoMode::ntsc);
    EXPECT_EQ(parsed.options->streamOptions, "");
    EXPECT_EQ(parsed.options->interlace, Interlace::asItIs);
    EXPECT_FALSE(parsed.options->audio);
    EXPECT_EQ(parsed.options->releaseMs, 60'000);
}

TEST(PlayerOptions, UnicastLine) {
    const auto parsed = parse(Kind::unicast, {"-u", "a", "-p", "b", "-m", "pal", "-o", "tv", "-n", "1", "-r",
                                              "10000", "-P", "81", "host"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->port, 81);
    EXPECT_EQ(parsed.options->host, "host");
    EXPECT_EQ(parsed.options->user, "a");
}

TEST(PlayerOptions, MulticastLineWithAndWithoutAudio) {
    const std::vector<std::string> common{"-m", "pal", "-o",    "tv",        "-n",
                                          "1",  "-r",  "10000", "239.1.2.3", "5004"};
    auto parsed = parse(Kind::multicast, common);
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->host, "239.1.2.3");
    EXPECT_EQ(parsed.options->port, 5004);
    EXPECT_EQ(parsed.options->audioHost, "");
    std::vector<std::string> withAudio = common;
    withAudio.insert(withAudio.end(), {"239.1.2.4", "5006"});
    parsed = parse(Kind::multicast, withAudio);
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->audioHost, "239.1.2.4");
    EXPECT_EQ(parsed.options->audioPort, 5006);
}

TEST(PlayerOptions, Mpeg4Lines) {
    struct Case {
        const char* type;
        RtspTransport transport;
        const char* connect;
        bool credentials;
        bool https;
    };
    for (const Case& one : {Case{"rtsp-unicast", RtspTransport::unicast, "http", false, false},
                            Case{"rtsp-multicast", RtspTransport::multicast, "http-auth", true, false},
                            Case{"rtsp-tcp", RtspTransport::tcp, "http-auth", true, false},
                            Case{"rtsp-http", RtspTransport::http, "https", true, true},
                            Case{"RTSP-HTTP", RtspTransport::http, "auto", false, false}}) {
        const auto parsed =
            parse(Kind::mpeg4, {"-u", "viewer", "-p", "secret", "-m", "pal",       "-o",  "tv",
                                "-n", "3",      "-r", "10000",  "-P", "554",       "-q",  "20004",
                                "-c", "2",      "-M", one.type, "-H", one.connect, "host"});
        ASSERT_TRUE(parsed.options) << one.type;
        EXPECT_EQ(parsed.options->transport, one.transport);
        EXPECT_EQ(parsed.options->https, one.https);
        EXPECT_EQ(parsed.options->user, one.credentials ? "viewer" : "");
        EXPECT_EQ(parsed.options->password, one.credentials ? "secret" : "");
        EXPECT_EQ(parsed.options->udpPort, 20004);
        EXPECT_EQ(parsed.options->sourceNumber, 2);
    }
}

TEST(PlayerOptions, PortNoneOfTheSupervisorMeansAny) {
    const auto parsed = parse(Kind::mpeg4, {"-q", "65535", "-M", "rtsp-unicast", "host"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->udpPort, 0);
}

TEST(PlayerOptions, CredentialsWithoutAConnectModeAreUsed) {
    const auto parsed = parse(Kind::mpeg4, {"-u", "viewer", "-p", "secret", "host"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->user, "viewer");
    EXPECT_EQ(parsed.options->port, 554);
}

TEST(PlayerOptions, PortFollowsHttpsUnlessGiven) {
    EXPECT_EQ(parse(Kind::mjpeg, {"host"}).options->port, 80);
    EXPECT_EQ(parse(Kind::mjpeg, {"-e", "host"}).options->port, 443);
    EXPECT_EQ(parse(Kind::mjpeg, {"-e", "-P", "80", "host"}).options->port, 80);
}

TEST(PlayerOptions, ValuesMayLookLikeOptions) {
    const auto parsed = parse(Kind::mjpeg, {"-u", "-v", "-p", "--help", "-t", "-", "host"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->user, "-v");
    EXPECT_EQ(parsed.options->password, "--help");
    EXPECT_FALSE(parsed.options->verbose);
}

TEST(PlayerOptions, SecretsAreOverwrittenInTheCommandLine) {
    Line line({"mjpeg_player", "-u", "viewer", "-p", "secret", "-pglued", "host"});
    const auto parsed = parseOptions(Kind::mjpeg, line.count(), line.argv());
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->user, "viewer");
    EXPECT_EQ(parsed.options->password, "glued");
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_THAT(line.text(i), testing::Not(HasSubstr("viewer")));
        EXPECT_THAT(line.text(i), testing::Not(HasSubstr("secret")));
        EXPECT_THAT(line.text(i), testing::Not(HasSubstr("glued")));
    }
}

TEST(PlayerOptions, OptionsAfterTheHostAreReadEvenWithPosixlyCorrect) {
    setenv("POSIXLY_CORRECT", "1", 1);
    const auto parsed = parse(Kind::mjpeg, {"host", "-f"});
    unsetenv("POSIXLY_CORRECT");
    ASSERT_TRUE(parsed.options);
    EXPECT_TRUE(parsed.options->turned);
}

TEST(PlayerOptions, FirstLetterOfTheInterlaceModeDecides) {
    EXPECT_EQ(parse(Kind::mjpeg, {"-i", "p", "host"}).options->interlace, Interlace::asItIs);
    EXPECT_EQ(parse(Kind::mjpeg, {"-i", "i", "host"}).options->interlace, Interlace::smoothed);
    EXPECT_EQ(parse(Kind::mjpeg, {"-i", "x", "host"}).options->interlace, Interlace::asItIs);
}

TEST(PlayerOptions, ReleaseLimitIsSeparateFromThePictureLimit) {
    const auto parsed = parse(Kind::mjpeg, {"-w", "300", "host"});
    ASSERT_TRUE(parsed.options);
    EXPECT_EQ(parsed.options->releaseMs, 300);
    EXPECT_EQ(parsed.options->patienceMs, 10'000);
    EXPECT_EQ(parse(Kind::mpeg4, {"-r", "300", "-w", "0", "host"}).options->releaseMs, 0);
}

TEST(PlayerOptions, MistakesGiveStatusTwoAndAMessage) {
    const std::vector<std::pair<Kind, std::vector<std::string>>> mistakes{
        {Kind::mjpeg, {}},
        {Kind::mjpeg, {""}},
        {Kind::mjpeg, {"one", "two"}},
        {Kind::mjpeg, {"-m", "secam", "host"}},
        {Kind::mjpeg, {"-o", "radio", "host"}},
        {Kind::mjpeg, {"-n", "-1", "host"}},
        {Kind::mjpeg, {"-n", "", "host"}},
        {Kind::mjpeg, {"-P", "0", "host"}},
        {Kind::mjpeg, {"-P", "65536", "host"}},
        {Kind::mjpeg, {"-P", "80x", "host"}},
        {Kind::mjpeg, {"-r", "99999999999999999999", "host"}},
        {Kind::mjpeg, {"-w", "3600001", "host"}},
        {Kind::mjpeg, {"-q", "20000", "host"}},
        {Kind::mjpeg, {"--nonsense", "host"}},
        {Kind::mjpeg, {"host", "-t"}},
        {Kind::multicast, {"239.1.1.1"}},
        {Kind::multicast, {"239.1.1.1", "0"}},
        {Kind::multicast, {"239.1.1.1", "5004", "239.1.1.2"}},
        {Kind::mpeg4, {"-M", "rtsp", "host"}},
        {Kind::mpeg4, {"-M", "mjpeg", "host"}},
        {Kind::mpeg4, {"-H", "ftp", "host"}},
        {Kind::mpeg4, {"-q", "0", "host"}},
    };
    for (const auto& [kind, arguments] : mistakes) {
        testing::internal::CaptureStderr();
        const auto parsed = parse(kind, arguments);
        const std::string said = testing::internal::GetCapturedStderr();
        EXPECT_FALSE(parsed.options) << testing::PrintToString(arguments);
        EXPECT_EQ(parsed.status, 2);
        EXPECT_THAT(said, testing::StartsWith(std::string(programName(kind)) + ": ")) << said;
    }
}

TEST(PlayerOptions, HelpNamesEveryOptionThatThePlayerTakes) {
    testing::internal::CaptureStdout();
    const auto parsed = parse(Kind::mpeg4, {"--help"});
    const std::string help = testing::internal::GetCapturedStdout();
    EXPECT_FALSE(parsed.options);
    EXPECT_EQ(parsed.status, 0);
    for (const char* option :
         {"-u ", "-p ", "-m ", "-o ", "-n ", "-v ", "-r ", "-w ", "-P ", "-q ", "-c ", "-M ", "-H "})
        EXPECT_THAT(help, HasSubstr(std::string("  ") + option));
    testing::internal::CaptureStdout();
    EXPECT_EQ(parse(Kind::mjpeg, {"--version"}).status, 0);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), testing::StartsWith("mjpeg_player "));
}

} // namespace
} // namespace player
