// Every kind of stream with real traffic: detected or configured, played by the right player, shown on the screen.
//
// A detection looks for RTSP on the usual port, so each encoder has its own host. Hosts and multicast need a
// private network namespace.
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"
#include "tests/support/screen_picture.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <set>

namespace {

using appliance::Appliance;
using appliance::eventually;
using testing::HasSubstr;

using Arguments = std::vector<std::string>;

// Small pictures, so that several encoders and decoders can run on a small machine.
Arguments small(const Arguments& more) {
    Arguments all{"--width", "352", "--height", "288"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

class Kinds : public testing::Test {
protected:
    void SetUp() override {
        if (!appliance::isolate()) {
            GTEST_SKIP() << "needs a network namespace of its own for hosts and multicast";
        }
        decoder.emplace();
        decoder->setManual();
    }

    std::optional<Appliance> decoder;
};

// ---- Detected

const Arguments guarded{"--user", "operator", "--password", "s3cret"};
const appliance::Keys credentials{{"UserName", "operator"}, {"Password", "s3cret"}};

struct Detected {
    const char* name;
    Arguments encoder;
    const char* player;
    const char* type;
    int number; // of the type
    const char* connectMode;
    const char* audio = "no";
    const char* audioFormat = "none";
};

std::ostream& operator<<(std::ostream& out, const Detected& row) {
    return out << row.name;
}

class DetectedKind : public Kinds, public testing::WithParamInterface<Detected> {};

TEST_P(DetectedKind, IsPlayed) {
    const Detected& row = GetParam();
    decoder->addHost("Camera", small(row.encoder), credentials);
    decoder->start();
    ASSERT_TRUE(decoder->showsMoving(0)) << decoder->ctl({"explain", "0"}).output;
    EXPECT_EQ(decoder->playerName(), row.player);
    EXPECT_EQ(decoder->sourceValue(0, "VideoSourceType"), row.type);
    EXPECT_EQ(decoder->sourceValue(0, "ConnectMode"), row.connectMode);
    EXPECT_EQ(decoder->sourceValue(0, "Audio"), row.audio);
    EXPECT_EQ(decoder->sourceValue(0, "AudioFormat"), row.audioFormat);
    EXPECT_EQ(decoder->sourceValue(0, "ErrorCode"), "0");
    EXPECT_THAT(decoder->ctl({"explain", "0"}).output,
                HasSubstr("accepted: kind " + std::to_string(row.number) + " (" + row.type + ")"));
    EXPECT_EQ(decoder->countInLog("Failed to launch pending player"), 0U) << "the first try must succeed";
}

Detected withCredentials(Detected row) {
    row.encoder.insert(row.encoder.end(), guarded.begin(), guarded.end());
    row.connectMode = "http-auth";
    return row;
}

const Arguments everything{"--kinds", "mjpeg,mpeg2,sdp,rtsp-unicast,rtsp-multicast,rtsp-tcp,rtsp-http"};

// clang-format off
INSTANTIATE_TEST_SUITE_P(
    Of, DetectedKind,
    testing::Values(
        Detected{"Mjpeg", {"--kinds", "mjpeg"}, "mjpeg_player", "mjpeg", 1, "http"},
        Detected{"MjpegWithSound", {"--kinds", "mjpeg", "--audio"}, "mjpeg_player", "mjpeg", 1, "http", "yes"},
        Detected{"Mpeg2", {"--kinds", "mpeg2"}, "unicastplayer", "mpeg2-unicast", 2, "http"},
        withCredentials({"Mpeg2Guarded", {"--kinds", "mpeg2"}, "unicastplayer", "mpeg2-unicast", 2, ""}),
        Detected{"Sdp", {"--kinds", "sdp"}, "multicastplayer", "mpeg2-multicast", 3, "auto"},
        Detected{"SdpWithSound", {"--kinds", "sdp", "--audio"}, "multicastplayer", "mpeg2-multicast", 3, "auto", "yes", "mpeg"},
        Detected{"RtspUnicastMpeg4", {"--kinds", "rtsp-unicast"}, "mpeg4player", "rtsp-unicast", 4, "http"},
        Detected{"RtspUnicastH264", {"--kinds", "rtsp-unicast", "--codec", "h264"}, "mpeg4player", "rtsp-unicast", 4, "http"},
        withCredentials({"RtspUnicastGuarded", {"--kinds", "rtsp-unicast"}, "mpeg4player", "rtsp-unicast", 4, ""}),
        Detected{"RtspMulticastMpeg4", {"--kinds", "rtsp-multicast"}, "mpeg4player", "rtsp-multicast", 5, "http"},
        Detected{"RtspMulticastH264", {"--kinds", "rtsp-multicast", "--codec", "h264"}, "mpeg4player", "rtsp-multicast", 5, "http"},
        withCredentials({"RtspMulticastGuarded", {"--kinds", "rtsp-multicast"}, "mpeg4player", "rtsp-multicast", 5, ""}),
        Detected{"RtspTcpMpeg4", {"--kinds", "rtsp-tcp"}, "mpeg4player", "rtsp-tcp", 6, "http"},
        Detected{"RtspTcpH264", {"--kinds", "rtsp-tcp", "--codec", "h264"}, "mpeg4player", "rtsp-tcp", 6, "http"},
        withCredentials({"RtspTcpGuarded", {"--kinds", "rtsp-tcp"}, "mpeg4player", "rtsp-tcp", 6, ""}),
        Detected{"RtspHttpMpeg4", {"--kinds", "rtsp-http"}, "mpeg4player", "rtsp-http", 7, "http", "", ""},
        Detected{"RtspHttpH264", {"--kinds", "rtsp-http", "--codec", "h264"}, "mpeg4player", "rtsp-http", 7, "http", "", ""},
        withCredentials({"RtspHttpGuarded", {"--kinds", "rtsp-http"}, "mpeg4player", "rtsp-http", 7, "", "", ""}),
        Detected{"MulticastFirst", everything, "mpeg4player", "rtsp-multicast", 5, "http"}),
    [](const auto& value) { return std::string(value.param.name); });
// clang-format on

// ---- Configured

struct Configured {
    const char* type;
    const char* player;
    const char* connectMode;
};

std::ostream& operator<<(std::ostream& out, const Configured& row) {
    return out << row.type;
}

class ConfiguredKind : public Kinds, public testing::WithParamInterface<Configured> {};

TEST_P(ConfiguredKind, IsPlayedAlthoughTheEncoderHasOtherKinds) {
    const Configured& row = GetParam();
    decoder->addHost("Camera", small(everything), {{"VideoSourceType", row.type}});
    decoder->start();
    ASSERT_TRUE(decoder->showsMoving(0)) << decoder->ctl({"explain", "0"}).output;
    EXPECT_EQ(decoder->playerName(), row.player);
    EXPECT_EQ(decoder->sourceValue(0, "VideoSourceType"), row.type);
    EXPECT_EQ(decoder->sourceValue(0, "ConnectMode"), row.connectMode);
    EXPECT_THAT(decoder->ctl({"explain", "0"}).output, HasSubstr(std::string("configured type ") + row.type));
}

TEST_P(ConfiguredKind, GivesErrorElevenIfTheEncoderDoesNotHaveIt) {
    const std::string wanted = GetParam().type;
    decoder->addHost("Camera", small({"--kinds", "none"}), {{"VideoSourceType", wanted}});
    decoder->start();
    ASSERT_TRUE(decoder->waitForState("MANUAL_WAIT_ERROR_SLEEP_EVENT"));
    EXPECT_EQ(decoder->sourceValue(0, "ErrorCode"), "11");
    EXPECT_EQ(decoder->sourceValue(0, "VideoSourceType"), "");
    EXPECT_TRUE(decoder->players().empty());
}

INSTANTIATE_TEST_SUITE_P(Of, ConfiguredKind,
                         testing::Values(Configured{"mjpeg", "mjpeg_player", "http"},
                                         Configured{"mpeg2-unicast", "unicastplayer", "http"},
                                         Configured{"mpeg2-multicast", "multicastplayer", "auto"},
                                         Configured{"rtsp-unicast", "mpeg4player", "http"},
                                         Configured{"rtsp-multicast", "mpeg4player", "http"},
                                         Configured{"rtsp-tcp", "mpeg4player", "http"},
                                         Configured{"rtsp-http", "mpeg4player", "http"}),
                         [](const auto& value) {
                             std::string name = value.param.type;
                             std::ranges::replace(name, '-', '_');
                             return name;
                         });

// ---- From one kind to another

class KindSwitch : public Kinds {
protected:
    // A busy machine loses packets of a multicast, so a mark may be damaged; then the picture is still not black.
    bool isBlack() {
        screen::Frame frame;
        return !decoder->screen().newest(frame) || screen::isBlack(frame);
    }

    // Selects the source and reads the screen until its picture moves. No reading finds a black picture or one of a
    // third source, and after the first picture of the new source none of the old one comes.
    void switchTo(int source) {
        const std::int64_t blanked = decoder->screen().blankedAt();
        const std::uint64_t before = decoder->screen().newestInfo().number;
        const std::optional<FrameMark> old = decoder->mark();
        ASSERT_TRUE(old.has_value());
        ASSERT_EQ(decoder->ctl({"select", std::to_string(source)}).status, 0);
        std::set<int> counters;
        EXPECT_TRUE(eventually([&] {
            const std::optional<FrameMark> now = decoder->mark();
            EXPECT_TRUE(now ? now->source == old->source || now->source == source : !isBlack())
                << "no picture of either source in " << decoder->state();
            if (now && now->source == source) {
                counters.insert(now->counter);
            }
            return counters.size() >= 3;
        })) << decoder->ctl({"explain", std::to_string(source)}).output;
        EXPECT_EQ(decoder->screen().blankedAt(), blanked);
        int changes = 0;
        int shown = old->source;
        for (const screen::FrameInfo& frame : decoder->screen().infosSince(before)) {
            changes += frame.source != shown ? 1 : 0;
            shown = frame.source;
        }
        EXPECT_EQ(changes, 1);
        EXPECT_TRUE(decoder->waitForSource(source));
    }
};

TEST_F(KindSwitch, ShowsNoBlackFrameBetweenTheKinds) {
    decoder->addHost("Mjpeg", small({"--kinds", "mjpeg"}));
    decoder->addHost("Unicast", small({"--kinds", "rtsp-unicast"}));
    decoder->addHost("Mpeg2", small({"--kinds", "mpeg2"}));
    decoder->start();
    ASSERT_TRUE(decoder->showsMoving(0));
    for (const int source : {1, 2, 0}) {
        switchTo(source);
        EXPECT_TRUE(decoder->waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    }
}

TEST_F(KindSwitch, ShowsNoBlackFrameBetweenTheOtherKinds) {
    decoder->addHost("Multicast", small({"--kinds", "rtsp-multicast", "--codec", "h264"}));
    decoder->addHost("Guide", small({"--kinds", "sdp", "--multicast", "239.255.78.1"}));
    decoder->addHost("Connection", small({"--kinds", "rtsp-tcp"}));
    decoder->addHost("Tunnel", small({"--kinds", "rtsp-http", "--codec", "h264"}));
    decoder->start();
    ASSERT_TRUE(decoder->showsMoving(0));
    for (const int source : {1, 2, 3, 0}) {
        switchTo(source);
        EXPECT_TRUE(decoder->waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    }
}

} // namespace
