#include "appliance/encoder/device/encoder_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

CommandLine parse(std::vector<const char*> words) {
    words.insert(words.begin(), "video-encoder");
    return parseCommandLine(static_cast<int>(words.size()), words.data());
}

void expectMistake(std::vector<const char*> words, const char* text) {
    const CommandLine line = parse(std::move(words));
    EXPECT_FALSE(line.options.has_value()) << text;
    EXPECT_EQ(line.end.exitStatus, 2);
    EXPECT_THAT(line.end.message, HasSubstr(text));
}

} // namespace

TEST(Options, DefaultsHoldWithoutOptions) {
    const CommandLine line = parse({});
    ASSERT_TRUE(line.options.has_value()) << line.end.message;
    EXPECT_EQ(line.options->address, "127.0.0.1");
    EXPECT_EQ(line.options->httpPort, 0);
    EXPECT_FALSE(line.options->httpsPort.has_value());
    EXPECT_FALSE(line.options->controlPort.has_value());
    EXPECT_THAT(line.options->inputs, ElementsAre("test"));
    EXPECT_THAT(line.options->kinds, ElementsAre(Kind::Mjpeg));
    EXPECT_EQ(line.options->apiVersion, 2);
    EXPECT_FALSE(line.options->offersRtsp());
}

TEST(Options, EveryOptionTakesEffect) {
    const CommandLine line = parse({"--http",
                                    "8001",
                                    "--rtsp",
                                    "8002",
                                    "--https",
                                    "8003",
                                    "--control",
                                    "8004",
                                    "--input",
                                    "test",
                                    "--input",
                                    "clip.mkv",
                                    "--inputs",
                                    "4",
                                    "--kinds",
                                    "mjpeg,rtsp-tcp",
                                    "--kinds",
                                    "sdp",
                                    "--model",
                                    "A B",
                                    "--api-version",
                                    "1",
                                    "--user",
                                    "u",
                                    "--password",
                                    "p:q",
                                    "--digest",
                                    "--rotation",
                                    "180",
                                    "--fault",
                                    "401-view",
                                    "--fault",
                                    "stall=3",
                                    "--address",
                                    "127.0.0.2",
                                    "--name",
                                    "Gate",
                                    "--width",
                                    "640",
                                    "--height",
                                    "480",
                                    "--fps",
                                    "30",
                                    "--quality",
                                    "60",
                                    "--mark",
                                    "9",
                                    "--audio",
                                    "--max-connections",
                                    "5",
                                    "-v",
                                    "-v",
                                    "--certificate",
                                    "c",
                                    "--key",
                                    "k",
                                    "--codec",
                                    "h264",
                                    "--gop",
                                    "5",
                                    "--no-key-on-join",
                                    "--bitrate",
                                    "900",
                                    "--multicast",
                                    "239.1.2.3",
                                    "--multicast-port",
                                    "6000",
                                    "--track",
                                    "stream=0",
                                    "--session-ids",
                                    "text"});
    ASSERT_TRUE(line.options.has_value()) << line.end.message;
    const Options& options = *line.options;
    EXPECT_EQ(options.httpPort, 8001);
    EXPECT_EQ(options.rtspPort, 8002);
    EXPECT_EQ(options.httpsPort, 8003);
    EXPECT_EQ(options.controlPort, 8004);
    EXPECT_THAT(options.inputs, ElementsAre("test", "clip.mkv", "test", "test"));
    EXPECT_THAT(options.kinds, ElementsAre(Kind::Mjpeg, Kind::Sdp, Kind::RtspTcp));
    EXPECT_TRUE(options.offersRtspPort());
    EXPECT_EQ(options.model, "A B");
    EXPECT_EQ(options.apiVersion, 1);
    EXPECT_EQ(options.password, "p:q");
    EXPECT_TRUE(options.digest);
    EXPECT_EQ(options.rotation, 180);
    EXPECT_EQ(options.faults.text(), "401-view stall=3");
    EXPECT_EQ(options.address, "127.0.0.2");
    EXPECT_EQ(options.name, "Gate");
    EXPECT_EQ(options.width, 640);
    EXPECT_EQ(options.height, 480);
    EXPECT_EQ(options.fps, 30);
    EXPECT_EQ(options.quality, 60);
    EXPECT_EQ(options.mark, 9);
    EXPECT_TRUE(options.audio);
    EXPECT_EQ(options.maxConnections, 5);
    EXPECT_EQ(options.verbosity, 2);
    EXPECT_EQ(options.codec, Codec::H264);
    EXPECT_EQ(options.keyInterval, 5);
    EXPECT_FALSE(options.keyForNewcomer);
    EXPECT_EQ(options.bitrate, 900);
    EXPECT_EQ(options.multicastGroup, "239.1.2.3");
    EXPECT_EQ(options.multicastPort, 6000);
    EXPECT_EQ(options.track, "stream=0");
    EXPECT_FALSE(options.decimalSessions);
}

TEST(Options, KeyPicturesMayComeInTime) {
    EXPECT_EQ(parse({"--key-every", "4"}).options->keyInterval, 100);
    EXPECT_EQ(parse({"--fps", "30", "--key-every", "0.5"}).options->keyInterval, 15);
    EXPECT_EQ(parse({"--fps", "5", "--key-every", "0.01"}).options->keyInterval, 1);
}

TEST(Options, HttpsTakesAnyFreePortByDefault) {
    for (const CommandLine& line : {parse({"--https"}), parse({"--https", "--http", "0"})}) {
        ASSERT_TRUE(line.options.has_value()) << line.end.message;
        EXPECT_EQ(line.options->httpsPort, 0);
    }
}

TEST(Options, KindsMayBeNone) {
    const CommandLine line = parse({"--kinds", "none"});
    ASSERT_TRUE(line.options.has_value()) << line.end.message;
    EXPECT_TRUE(line.options->kinds.empty());
}

TEST(Options, HelpNamesTheFaultsAndExitsZero) {
    const CommandLine line = parse({"--help"});
    EXPECT_FALSE(line.options.has_value());
    EXPECT_EQ(line.end.exitStatus, 0);
    for (const char* word :
         {"--http", "--kinds", "rtsp-multicast", "stall=N", "endless-headers", "http=PORT"})
        EXPECT_THAT(line.end.message, HasSubstr(word));
}

TEST(Options, VersionNamesTheProgramAndExitsZero) {
    const CommandLine line = parse({"--version"});
    EXPECT_FALSE(line.options.has_value());
    EXPECT_EQ(line.end.exitStatus, 0);
    EXPECT_THAT(line.end.message, testing::StartsWith("video-encoder "));
}

TEST(Options, MistakesAreNamedAndExitTwo) {
    expectMistake({"--http", "70000"}, "--http");
    expectMistake({"--http", "x"}, "--http");
    expectMistake({"--https", "x"}, "--https");
    expectMistake({"--nonsense"}, "--nonsense");
    expectMistake({"stray"}, "stray");
    expectMistake({"--kinds", "mjpeg,flash"}, "unknown kind 'flash'");
    expectMistake({"--fault", "explode"}, "no fault is named 'explode'");
    expectMistake({"--api-version", "0"}, "--api-version");
    expectMistake({"--rotation", "45"}, "--rotation");
    expectMistake({"--inputs", "0"}, "--inputs");
    expectMistake({"--inputs", "65"}, "--inputs");
    expectMistake({"--inputs", "1", "--input", "a", "--input", "b"}, "more --input options");
    expectMistake({"--width", "641"}, "even");
    expectMistake({"--fps", "0"}, "--fps");
    expectMistake({"--quality", "101"}, "--quality");
    expectMistake({"--user", "a:b"}, "colon");
    expectMistake({"--password", "p"}, "--password needs --user");
    expectMistake({"--digest"}, "--digest needs --user");
    expectMistake({"--certificate", "x"}, "go together");
    expectMistake({"--codec", "vp8"}, "--codec");
    expectMistake({"--gop", "0"}, "--gop");
    expectMistake({"--key-every", "0"}, "--key-every");
    expectMistake({"--key-every", "11"}, "--key-every");
    expectMistake({"--key-every", "1", "--gop", "5"}, "--gop");
    expectMistake({"--multicast", "127.0.0.1"}, "is not a multicast address");
    expectMistake({"--multicast", "x"}, "is not a multicast address");
    expectMistake({"--multicast-port", "5001"}, "even");
    expectMistake({"--track", "a/b"}, "--track");
    expectMistake({"--session-ids", "roman"}, "--session-ids");
    expectMistake({"--max-connections", "0"}, "--max-connections");
}
