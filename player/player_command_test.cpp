#include "player/player_command.h"

#include "process/process_state.h"
#include "tests/fakes/fake_libcommon.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

// A detected entry: source 3, camera 2, at 10.0.0.9:8080.
SourceEntry detectedEntry(int type) {
    SourceEntry entry;
    entry.index = 3;
    entry.userName = "operator";
    entry.password = "secret";
    entry.sourceNumber = 2;
    entry.detectedOK = true;
    entry.detectedType = type;
    entry.connectMode = CONNECT_HTTP;
    entry.rtspHost = "10.0.0.9";
    entry.rtspPort = 8080;
    entry.audioHost = "239.1.1.2";
    entry.audioPort = 5002;
    return entry;
}

class PlayerCommandLine : public testing::Test {
protected:
    PlayerCommandLine() {
        fake::reset();
        fake::sources.resize(4);
        configure("Resolution", "default");
        configure("Compression", "default");
    }

    static void configure(const char* key, const char* value) { fake::sources[3][key] = value; }

    static std::vector<std::string> arguments(const SourceEntry& entry, int port = 65535) {
        return buildCommandLine(entry, static_cast<std::uint16_t>(port)).arguments;
    }

    // The arguments behind "-r 10000", which depend on the kind of stream.
    static std::vector<std::string> tail(const SourceEntry& entry, int port = 65535) {
        const std::vector<std::string> all = arguments(entry, port);
        const auto end = std::find(all.begin(), all.end(), "10000");
        return {end + 1, all.end()};
    }
};

TEST_F(PlayerCommandLine, UnicastRtspWithCredentialsHasThisWholeCommandLine) {
    fake::setParam(0, "Decoder.VideoMode", "pal");
    SourceEntry entry = detectedEntry(TYPE_RTSP_UNICAST);
    entry.connectMode = CONNECT_HTTP_AUTH;
    EXPECT_THAT(arguments(entry, 20004),
                ElementsAre("/bin/mpeg4player", "-u", "operator", "-p", "secret", "-m", "pal", "-o", "tv",
                            "-n", "3", "-r", "10000", "-P", "8080", "-q", "20004", "-c", "2", "-M",
                            "rtsp-unicast", "-H", "http-auth", "10.0.0.9"));
}

struct KindCase {
    int type;
    std::vector<std::string> program;
    std::vector<std::string> tail;
};

class PlayerCommandLineOfEachKind : public testing::TestWithParam<KindCase> {};

TEST_P(PlayerCommandLineOfEachKind, HasProgramAndArguments) {
    fake::reset();
    fake::sources.resize(4);
    fake::sources[3]["Resolution"] = "default";
    fake::sources[3]["Compression"] = "default";
    std::vector<std::string> expected = GetParam().program;
    for (const char* common : {"-m", "ntsc", "-o", "tv", "-n", "3", "-r", "10000"})
        expected.emplace_back(common);
    expected.insert(expected.end(), GetParam().tail.begin(), GetParam().tail.end());
    EXPECT_THAT(buildCommandLine(detectedEntry(GetParam().type), 20008).arguments,
                ElementsAreArray(expected));
}

using Texts = std::vector<std::string>;

INSTANTIATE_TEST_SUITE_P(
    Kinds, PlayerCommandLineOfEachKind,
    testing::Values(
        KindCase{0, {}, {}}, //
        KindCase{1, {"/bin/mjpeg_player"}, {"-P", "8080", "10.0.0.9", "-i", ""}},
        KindCase{2, {"unicastplayer"}, {"-P", "8080", "10.0.0.9"}},
        KindCase{3, {"multicastplayer"}, {"10.0.0.9", "8080"}},
        KindCase{4,
                 {"/bin/mpeg4player"},
                 {"-P", "8080", "-q", "20008", "-c", "2", "-M", "rtsp-unicast", "-H", "http", "10.0.0.9"}},
        KindCase{5,
                 {"/bin/mpeg4player"},
                 {"-P", "8080", "-c", "2", "-M", "rtsp-multicast", "-H", "http", "10.0.0.9"}},
        KindCase{
            6, {"/bin/mpeg4player"}, {"-P", "8080", "-c", "2", "-M", "rtsp-tcp", "-H", "http", "10.0.0.9"}},
        KindCase{
            7, {"/bin/mpeg4player"}, {"-P", "8080", "-c", "2", "-M", "rtsp-http", "-H", "http", "10.0.0.9"}},
        KindCase{8, {}, {}}),
    [](const auto& instance) { return "Type" + std::to_string(instance.param.type); });

TEST_F(PlayerCommandLine, CredentialsGoWithConnectModesTwoAndThreeOnly) {
    for (const int mode : {0, 1, 2, 3, 4}) {
        SourceEntry entry = detectedEntry(TYPE_MPEG2);
        entry.connectMode = mode;
        const std::vector<std::string> all = arguments(entry);
        const bool credentials = mode == 2 || mode == 3;
        EXPECT_EQ(std::count(all.begin(), all.end(), "-u"), credentials ? 1 : 0) << mode;
        EXPECT_EQ(std::count(all.begin(), all.end(), "secret"), credentials ? 1 : 0) << mode;
    }
}

TEST_F(PlayerCommandLine, OnlyTheMjpegPlayerOverHttpsGetsTheEncryptionOption) {
    SourceEntry entry = detectedEntry(TYPE_MJPEG);
    entry.connectMode = CONNECT_HTTPS;
    EXPECT_THAT(arguments(entry),
                ElementsAre("/bin/mjpeg_player", "-u", "operator", "-p", "secret", "-e", "-m", "ntsc", "-o",
                            "tv", "-n", "3", "-r", "10000", "-P", "8080", "10.0.0.9", "-i", ""));
    entry.detectedType = TYPE_MPEG2;
    EXPECT_THAT(arguments(entry), testing::Not(testing::Contains("-e")));
    entry.detectedType = TYPE_MJPEG;
    entry.connectMode = CONNECT_HTTP_AUTH;
    EXPECT_THAT(arguments(entry), testing::Not(testing::Contains("-e")));
}

TEST_F(PlayerCommandLine, WithoutAProgramTheListBeginsWithTheCredentials) {
    SourceEntry entry = detectedEntry(8);
    entry.connectMode = CONNECT_HTTPS;
    EXPECT_EQ(arguments(entry).front(), "-u");
}

TEST_F(PlayerCommandLine, VideoModeIsPalOnlyForExactlyPal) {
    for (const char* mode : {"", "ntsc", "PAL", "pal "}) {
        fake::setParam(0, "Decoder.VideoMode", mode);
        EXPECT_EQ(arguments(detectedEntry(8))[1], "ntsc") << mode;
    }
    fake::setParam(0, "Decoder.VideoMode", "pal");
    EXPECT_EQ(arguments(detectedEntry(8))[1], "pal");
}

TEST_F(PlayerCommandLine, VerboseOptionIsPassedFromVerbosityTwoOn) {
    for (const int verbosity : {0, 1}) {
        process.verbosity = verbosity;
        EXPECT_THAT(arguments(detectedEntry(8)), testing::Not(testing::Contains("-v")));
    }
    process.verbosity = 2;
    EXPECT_THAT(arguments(detectedEntry(8)),
                ElementsAre("-m", "ntsc", "-o", "tv", "-n", "3", "-v", "-r", "10000"));
    process.verbosity = 0;
}

TEST_F(PlayerCommandLine, MjpegAudioComesFirst) {
    SourceEntry entry = detectedEntry(TYPE_MJPEG);
    entry.audioAvailable = true;
    EXPECT_THAT(tail(entry), ElementsAre("-a", "-P", "8080", "10.0.0.9", "-i", ""));
}

TEST_F(PlayerCommandLine, EmptyQueryBecomesAQuestionMarkAndLosesTheResolution) {
    configure("Resolution", "640x480");
    EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)), ElementsAre("-P", "8080", "10.0.0.9", "-t", "?", "-i", ""));
    configure("Compression", "30");
    EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)),
                ElementsAre("-P", "8080", "10.0.0.9", "-t", "?&compression=30", "-i", ""));
}

TEST_F(PlayerCommandLine, FilledQueryGetsResolutionAndCompression) {
    SourceEntry entry = detectedEntry(TYPE_MJPEG);
    entry.streamOptions = "camera=2";
    configure("Resolution", "4CIF");
    configure("Compression", "25");
    EXPECT_THAT(tail(entry), testing::Contains("camera=2&resolution=4CIF&compression=25"));
    configure("Resolution", "default");
    EXPECT_THAT(tail(entry), testing::Contains("camera=2&compression=25"));
    configure("Compression", "default");
    EXPECT_THAT(tail(entry), testing::Contains("camera=2"));
}

TEST_F(PlayerCommandLine, MissingResolutionIsNotTheDefaultOne) {
    fake::sources[3].clear();
    EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)),
                ElementsAre("-P", "8080", "10.0.0.9", "-t", "?&compression=", "-i", ""));
}

TEST_F(PlayerCommandLine, TheSupervisorsEntryKeepsItsQuery) {
    configure("Resolution", "640x480");
    const SourceEntry entry = detectedEntry(TYPE_MJPEG);
    arguments(entry);
    EXPECT_EQ(entry.streamOptions, "");
}

TEST_F(PlayerCommandLine, HalfTurnFlipsThePicture) {
    for (const char* rotation : {"", "0", "90", "270", "1800"}) {
        fake::statusValues[{3, "ImageRotation"}] = rotation;
        EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)), testing::Not(testing::Contains("-f"))) << rotation;
    }
    fake::statusValues[{3, "ImageRotation"}] = "180";
    EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)), ElementsAre("-P", "8080", "10.0.0.9", "-f", "-i", ""));
}

struct InterlaceCase {
    const char* configured;
    const char* rotation;
    int sourceNumber;
    const char* expected;
};

TEST_F(PlayerCommandLine, InterlaceModeIsTheFirstLetterAndAutomaticBecomesProgressiveWhereFieldsDontHelp) {
    const InterlaceCase cases[] = {
        {"auto", "0", 1, "a"},   {"auto", "", 1, "a"},
        {"auto", "180", 1, "a"}, {"auto", "90", 1, "p"},
        {"auto", "270", 1, "p"}, {"auto", "0", 0, "p"},
        {"a", "90", 0, "p"},     {"interlaced", "90", 1, "i"},
        {"bob", "0", 0, "b"},    {"progressive", "0", 2, "p"},
        {"", "90", 0, ""},       {"Auto", "90", 0, "A"},
    };
    for (const InterlaceCase& one : cases) {
        configure("InterlaceMode", one.configured);
        fake::statusValues[{3, "ImageRotation"}] = one.rotation;
        SourceEntry entry = detectedEntry(TYPE_MJPEG);
        entry.sourceNumber = one.sourceNumber;
        const std::vector<std::string> all = arguments(entry);
        EXPECT_EQ(all[all.size() - 2], "-i");
        EXPECT_EQ(all.back(), one.expected)
            << one.configured << " rotation " << one.rotation << " source " << one.sourceNumber;
    }
}

TEST_F(PlayerCommandLine, MulticastWithAudioNamesBothGroups) {
    SourceEntry entry = detectedEntry(TYPE_SDP);
    entry.audioAvailable = true;
    EXPECT_THAT(tail(entry), ElementsAre("10.0.0.9", "8080", "239.1.1.2", "5002"));
}

TEST_F(PlayerCommandLine, NoPortArrivesAsAllBitsSet) {
    EXPECT_THAT(tail(detectedEntry(TYPE_RTSP_UNICAST), -1), testing::Contains("65535"));
}

TEST_F(PlayerCommandLine, UnknownConnectModeHasTheUnknownText) {
    SourceEntry entry = detectedEntry(TYPE_RTSP_TCP);
    for (const int mode : {-1, 4, 5}) {
        entry.connectMode = mode;
        EXPECT_THAT(tail(entry), testing::Contains("unknown")) << mode;
    }
}

TEST_F(PlayerCommandLine, TextHidesThePasswordByItsPlace) {
    SourceEntry entry = detectedEntry(TYPE_MPEG2);
    entry.connectMode = CONNECT_HTTP_AUTH;
    entry.userName = "-p";
    EXPECT_EQ(buildCommandLine(entry, 65535).text(),
              "unicastplayer -u -p -p ******** -m ntsc -o tv -n 3 -r 10000 -P 8080 10.0.0.9");
    entry.connectMode = CONNECT_HTTP;
    EXPECT_EQ(buildCommandLine(entry, 65535).text(),
              "unicastplayer -m ntsc -o tv -n 3 -r 10000 -P 8080 10.0.0.9");
}

TEST_F(PlayerCommandLine, SourceThatIsNoLongerConfiguredReadsAsEmpty) {
    fake::sources.clear();
    EXPECT_THAT(tail(detectedEntry(TYPE_MJPEG)),
                ElementsAre("-P", "8080", "10.0.0.9", "-t", "?&compression=", "-i", ""));
}

} // namespace
