// The sound of cameras: handed on by the gateway, decoded by the player, and found again in the samples of the decoder's
// sound device.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/peers/peer_program.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <gmock/gmock.h>
#include <numbers>
#include <sstream>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using player::TestRtspServer;

constexpr double deviceRate = 48'000;
constexpr std::size_t window = 24'000; // half a second

// The samples of the left channel that were played last.
std::vector<double> lastSamples(const std::string& file) {
    const std::string bytes = appliance::readFile(file);
    const std::size_t count = std::min(bytes.size() / 4, window);
    std::vector<double> samples(count);
    for (std::size_t i = 0; i < count; ++i) {
        std::int16_t sample = 0;
        std::memcpy(&sample, &bytes[4 * (bytes.size() / 4 - count + i)], sizeof sample);
        samples[i] = sample;
    }
    return samples;
}

// The part of the samples' power that a tone has, 0 to 1. Silence has none.
double partOf(const std::vector<double>& samples, double frequency) {
    double cosine = 0;
    double sine = 0;
    double power = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double angle = 2 * std::numbers::pi * frequency * static_cast<double>(i) / deviceRate;
        cosine += samples[i] * std::cos(angle);
        sine += samples[i] * std::sin(angle);
        power += samples[i] * samples[i];
    }
    const auto count = static_cast<double>(samples.size());
    return power / std::max(count, 1.0) < 100 ? 0 : 2 * (cosine * cosine + sine * sine) / count / power;
}

struct SoundKind {
    const char* name;
    const char* video; // "": the server's own
    const char* sound;
    const char* format; // as `decoderctl add` prints it
};

class CameraSound : public testing::Test {
protected:
    CameraSound() { decoder_.set("Sound.Device", "file:" + device()); }
    std::string device() const { return decoder_.root() + "/samples"; }

    void expectHeard(double frequency) {
        const bool heard = eventually([&] {
            const std::vector<double> samples = lastSamples(device());
            return samples.size() == window && partOf(samples, frequency) > 0.9;
        });
        EXPECT_TRUE(heard) << "the tone has " << partOf(lastSamples(device()), frequency)
                           << " of the sound's power\n"
                           << decoder_.log();
        EXPECT_LT(partOf(lastSamples(device()), frequency * 1.5), 0.1);
    }

    Appliance decoder_;
};

class SoundOfRtspCameras : public CameraSound, public testing::WithParamInterface<SoundKind> {};

TEST_P(SoundOfRtspCameras, IsHeard) {
    constexpr double tone = 440; // of audiotestsrc
    player::RtspServerOptions options{.sound = GetParam().sound, .path = "/live"};
    if (*GetParam().video != '\0')
        options.encoding = GetParam().video;
    const TestRtspServer camera(options);
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(camera.port()) + "/live";
    decoder_.addSource("Yard", {{"URL", url}});
    const CameraGateway gateway(decoder_);
    EXPECT_THAT(decoder_.ctl({"add", "Again", url}).output,
                testing::HasSubstr(std::string(", sound ") + GetParam().format));
    decoder_.start();
    ASSERT_TRUE(decoder_.showsMoving(9)) << gateway.log();
    expectHeard(tone);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, SoundOfRtspCameras,
    testing::Values(
        SoundKind{"G711U", "",
                  "audioconvert ! audioresample ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! "
                  "rtppcmupay name=pay1 pt=0",
                  "PCMU"},
        SoundKind{"G711A", "",
                  "audioconvert ! audioresample ! audio/x-raw,rate=8000,channels=1 ! alawenc ! "
                  "rtppcmapay name=pay1 pt=8",
                  "PCMA"},
        SoundKind{"Aac", "",
                  "audioconvert ! audioresample ! audio/x-raw,rate=44100,channels=2 ! avenc_aac ! "
                  "rtpmp4gpay name=pay1 pt=97",
                  "MPEG4-GENERIC"},
        SoundKind{"MpegAudio", "",
                  "audioconvert ! audioresample ! audio/x-raw,rate=48000,channels=2 ! twolamemp2enc ! "
                  "mpegaudioparse ! rtpmpapay name=pay1 pt=14",
                  "MPA"},
        SoundKind{"OfAnEncodedVideo", "vp8enc deadline=1 keyframe-max-dist=25 ! rtpvp8pay name=pay0 pt=96",
                  "audioconvert ! audioresample ! audio/x-raw,rate=8000,channels=1 ! mulawenc ! "
                  "rtppcmupay name=pay1 pt=0",
                  "PCMU"}),
    [](const auto& instance) { return instance.param.name; });

TEST_F(CameraSound, OfAFileIsHeardHandedOnOrEncoded) {
    if (const std::string reason = peers::missing({"ffmpeg"}); !reason.empty())
        GTEST_SKIP() << reason;
    constexpr double tone = 1000;
    const peers::Folder media; // its path has no blank
    const auto make = [&](const std::string& name, const std::string& codec) {
        std::istringstream words("-v error -nostdin -y -f lavfi -i testsrc=size=352x288:rate=25 -f lavfi -i "
                                 "sine=frequency=1000 -af volume=4 -t 10 -c:v libx264 -g 25 -c:a " +
                                 codec + " " + media.file(name));
        const appliance::Finished finished =
            peers::run("ffmpeg", {std::istream_iterator<std::string>(words), {}});
        EXPECT_EQ(finished.status, 0) << finished.errors;
        return media.file(name);
    };
    decoder_.setManual();
    decoder_.addSource("Handed on", {{"URL", make("aac.mp4", "aac")}});
    decoder_.addSource("Encoded", {{"URL", make("ac3.mkv", "ac3")}});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    expectHeard(tone);
    EXPECT_EQ(decoder_.ctl({"select", "1"}).status, 0);
    EXPECT_TRUE(decoder_.waitForSource(1)) << gateway.log();
    const std::size_t before = appliance::readFile(device()).size();
    EXPECT_TRUE(eventually([&] { return appliance::readFile(device()).size() > before + 4 * 4 * window; }));
    expectHeard(tone);
}

} // namespace
