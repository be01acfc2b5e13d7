// Cameras that the gateway reads through camera-input: files, SRT streams, and codecs that players can't decode. The
// files are made by ffmpeg.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/peers/peer_program.h"

#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <sstream>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using player::TestRtspServer;
using testing::HasSubstr;
using testing::Not;

constexpr int cameraMark = 9; // of TestRtspServer's pictures
constexpr int fileMark = 61;
constexpr const char* secret = "tenLetters";

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

// The camera-inputs whose parent is this process.
std::vector<int> inputsOf(int parent) {
    std::vector<int> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string stat = appliance::readFile(entry.path().string() + "/stat");
        int number = 0;
        int of = 0;
        if (std::sscanf(stat.c_str(), "%d (camera-input) %*c %d", &number, &of) == 2 && of == parent)
            found.push_back(number);
    }
    return found;
}

class CameraInputs : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"ffmpeg"}); !reason.empty())
            GTEST_SKIP() << reason;
    }

    // Three seconds of pictures with a mark, and a tone.
    std::string clip() {
        const std::string file = media_.file("clip.mkv");
        if (std::filesystem::exists(file))
            return file;
        const appliance::Encoder camera("Camera", fileMark, wordsOf("--width 352 --height 288"),
                                        decoder_.root() + "/camera.log");
        run("-f mpjpeg -i http://" + camera.address() +
            "/vexo-cgi/mjpg/video.cgi?camera=1 -f lavfi -i sine=frequency=1000 -t 3 -c:v copy -c:a "
            "pcm_s16le " +
            file);
        return file;
    }
    void run(const std::string& arguments) {
        const appliance::Finished finished =
            peers::run("ffmpeg", wordsOf("-v error -nostdin -y " + arguments));
        ASSERT_EQ(finished.status, 0) << finished.errors;
    }
    std::string made(const std::string& name, const std::string& how) {
        const std::string file = media_.file(name);
        run("-i " + clip() + " " + how + " " + file);
        return file;
    }
    // Plays a source alone and looks at its pictures.
    void expectPlayed(const std::string& url, const std::string& encoded, int mark = fileMark) {
        Appliance decoder;
        decoder.addSource("Yard", {{"URL", url}});
        const CameraGateway gateway(decoder);
        decoder.start();
        EXPECT_TRUE(decoder.showsMoving(mark)) << url << '\n' << gateway.log();
        EXPECT_EQ(decoder.sourceValue(0, "Reason"), "") << url;
        EXPECT_TRUE(eventually([&] {
            return decoder.ctl({"source", "0"}).output.find("\nEncoded=" + encoded + "\n") !=
                   std::string::npos;
        })) << url
            << '\n'
            << decoder.ctl({"source", "0"}).output;
        EXPECT_EQ(decoder.sourceValue(0, "VideoSourceType"), "rtsp-tcp");
    }
    std::string reasonFor(const std::string& url) {
        decoder_.addSource("Yard", {{"URL", url}});
        const CameraGateway gateway(decoder_);
        decoder_.start();
        eventually([&] { return reason() != "" && reason() != "(none)"; });
        return reason();
    }
    std::string reason() const { return decoder_.sourceValue(0, "Reason"); }

    Appliance decoder_;
    peers::Folder media_; // its path has no blank
};

struct FileKind {
    const char* name;
    const char* how;
    const char* encoded; // "": handed on
    const char* added;   // the begin of what `decoderctl add` prints
};

class CameraFiles : public CameraInputs, public testing::WithParamInterface<FileKind> {};

TEST_P(CameraFiles, AreAddedAndPlayedInALoop) {
    const FileKind& kind = GetParam();
    const std::string file = made(kind.name, kind.how);
    const CameraGateway gateway(decoder_);
    const appliance::Finished added = decoder_.ctl({"add", "Yard", "file://" + file});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, testing::StartsWith(kind.added));
    if (*kind.encoded == '\0')
        EXPECT_THAT(added.output, Not(HasSubstr("encoded anew")));
    else
        EXPECT_THAT(added.output, HasSubstr("is encoded anew as H264"));
    expectPlayed(file, kind.encoded);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CameraFiles,
    testing::Values(
        FileKind{"clip.mp4", "-c:v libx264 -g 25 -bf 2 -c:a aac", "", "H264, 352x288, "},
        FileKind{"clip.ts", "-c:v libx265 -x265-params log-level=none:keyint=25 -c:a mp2", "",
                 "H265, 352x288, "},
        FileKind{"clip.avi", "-c:v mpeg4 -q:v 3 -bf 2 -g 25 -c:a libmp3lame", "", "MP4V-ES, 352x288, "},
        FileKind{"jpeg.mkv", "-c:v mjpeg -q:v 3 -pix_fmt yuvj420p -huffman default -c:a pcm_mulaw -ar 8000",
                 "", "JPEG, 352x288, "},
        FileKind{"odd.mkv", "-c:v mjpeg -q:v 3 -pix_fmt yuvj444p -an", "MJPEG to H264", "H264, 352x288, "},
        FileKind{"clip.webm", "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -b:v 2M -g 25 -c:a libopus",
                 "VP9 to H264", "H264, 352x288, "},
        FileKind{"av1.mp4", "-c:v libaom-av1 -cpu-used 8 -usage realtime -b:v 2M -g 25 -an", "AV1 to H264",
                 "H264, 352x288, "}),
    [](const auto& instance) {
        std::string name = instance.param.name;
        name[name.find('.')] = '_';
        return name;
    });

TEST_F(CameraInputs, PathsAndFilesThatCannotBePlayed) {
    const CameraGateway gateway(decoder_);
    media_.write("text.mp4", std::string(5000, 'x'));
    run("-f lavfi -i sine=frequency=1000 -t 1 " + media_.file("sound.mp4"));
    const auto refusal = [&](const std::string& url) { return decoder_.ctl({"add", "Yard", url}).errors; };
    EXPECT_THAT(refusal("/nowhere/clip.mp4"), HasSubstr("there is no file /nowhere/clip.mp4"));
    EXPECT_THAT(refusal(media_.file("text.mp4")), HasSubstr("is not a video that can be read"));
    EXPECT_THAT(refusal(media_.file("sound.mp4")), HasSubstr("has no video"));
    EXPECT_THAT(refusal(media_.file("")), HasSubstr("that of a folder"));
    EXPECT_THAT(refusal("/dev/video99"), HasSubstr("there is no camera at /dev/video99"));
    EXPECT_THAT(refusal("/dev/null"), HasSubstr("/dev/null is not a camera"));
    EXPECT_THAT(refusal("srt://127.0.0.1:9"), HasSubstr("no connection over SRT"));
}

TEST_F(CameraInputs, CodecsThatPlayersCannotDecodeAreEncodedAnew) {
    struct Codec {
        const char* encoding;
        const char* encoded;
    };
    for (const Codec& codec :
         {Codec{"vp8enc deadline=1 keyframe-max-dist=25 ! rtpvp8pay name=pay0 pt=96", "VP8 to H264"},
          Codec{"vp9enc deadline=1 cpu-used=8 keyframe-max-dist=25 ! rtpvp9pay name=pay0 pt=96",
                "VP9 to H264"}}) {
        const TestRtspServer camera({.encoding = codec.encoding, .path = "/live"});
        expectPlayed("rtsp://127.0.0.1:" + std::to_string(camera.port()) + "/live", codec.encoded,
                     cameraMark);
    }
}

TEST_F(CameraInputs, EncodingIsSaidOnceInTheLogAndWhenTheCameraIsAdded) {
    const TestRtspServer camera(
        {.encoding = "vp8enc deadline=1 keyframe-max-dist=25 ! rtpvp8pay name=pay0 pt=96", .path = "/live"});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    const std::string url = "rtsp://127.0.0.1:" + std::to_string(camera.port()) + "/live";
    const appliance::Finished added = decoder_.ctl({"add", "Yard", url});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr("its VP8 is encoded anew as H264"));
    EXPECT_EQ(decoder_.ctl({"connect"}).status, 0);
    EXPECT_TRUE(decoder_.showsMoving(cameraMark)) << gateway.log();
    const std::string log = gateway.log();
    const std::size_t said = log.find("its VP8 is encoded anew as H264");
    EXPECT_NE(said, std::string::npos) << log;
    EXPECT_EQ(log.find("its VP8", said + 1), std::string::npos) << log;
}

TEST_F(CameraInputs, AKilledInputStartsAgainAndThePlayerStays) {
    decoder_.setManual();
    decoder_.addSource("Yard", {{"URL", made("clip.mp4", "-c:v libx264 -g 10 -an")}});
    CameraGateway gateway(decoder_);
    decoder_.start();
    ASSERT_TRUE(decoder_.showsMoving(fileMark)) << gateway.log();
    const int player = decoder_.playerPid();
    const std::vector<int> inputs = inputsOf(gateway.process().pid());
    ASSERT_EQ(inputs.size(), 1U);
    kill(inputs[0], SIGKILL);
    EXPECT_TRUE(eventually([&] {
        const std::vector<int> now = inputsOf(gateway.process().pid());
        return now.size() == 1 && now != inputs;
    }));
    EXPECT_TRUE(decoder_.showsMoving(fileMark)) << gateway.log();
    EXPECT_EQ(decoder_.playerPid(), player);
    EXPECT_THAT(gateway.log(), HasSubstr("camera-input, which reads it, has failed"));
    const int last = inputsOf(gateway.process().pid())[0];
    kill(gateway.process().pid(), SIGKILL);
    EXPECT_TRUE(eventually([&] { return kill(last, 0) != 0; })) << "it ends with the gateway";
}

TEST_F(CameraInputs, SrtWithAPassphrasePlays) {
    const std::string file = made("clip.ts", "-c:v libx264 -g 10 -bf 0 -c:a aac");
    const int port = peers::freePort();
    const std::string place = "srt://127.0.0.1:" + std::to_string(port);
    const peers::Program camera("ffmpeg", wordsOf("-v error -nostdin -re -stream_loop -1 -i " + file +
                                                  " -c copy -f mpegts " + place +
                                                  "?mode=listener&passphrase=" + secret));
    decoder_.addSource("Yard", {{"URL", place + "?passphrase=" + secret}});
    CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(fileMark)) << gateway.log() << camera.output();
    EXPECT_EQ(decoder_.sourceValue(0, "Encoded"), "");
    std::string seen = gateway.log() + decoder_.log() + decoder_.ctl({"source", "0"}).output +
                       decoder_.ctl({"get", "Encoder.Yard.URL"}).output;
    for (const int input : inputsOf(gateway.process().pid()))
        seen += appliance::readFile("/proc/" + std::to_string(input) + "/cmdline");
    EXPECT_THAT(seen, HasSubstr("camera-input"));
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
}

TEST_F(CameraInputs, SrtWithAWrongPassphraseSaysSo) {
    const std::string file = made("clip.ts", "-c:v libx264 -g 10 -bf 0 -an");
    const std::string place = "srt://127.0.0.1:" + std::to_string(peers::freePort());
    const peers::Program camera("ffmpeg", wordsOf("-v error -nostdin -re -stream_loop -1 -i " + file +
                                                  " -c copy -f mpegts " + place +
                                                  "?mode=listener&passphrase=" + secret));
    EXPECT_THAT(reasonFor(place + "?passphrase=anotherOne"), HasSubstr("another passphrase"));
}

} // namespace
