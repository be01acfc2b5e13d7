// ffprobe, an independent client, reads every kind of stream. Skipped if it is not installed.
#include "appliance/encoder/testing/test_client.h"
#include "tests/fakes/network_namespace.h"

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

std::string outputOf(const std::string& command) {
    std::string text;
    FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 256> buffer{};
    while (fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr)
        text += buffer.data();
    pclose(pipe);
    return text;
}

// A line "codec,width,height" for each stream.
std::string probe(const std::string& arguments) {
    return outputOf("timeout 20 ffprobe -v error -show_entries stream=codec_name,width,height -of csv=p=0 " +
                    arguments + " 2>/dev/null");
}

class Ffprobe : public testing::Test {
protected:
    void SetUp() override {
        if (outputOf("command -v ffprobe").empty())
            GTEST_SKIP() << "ffprobe is not installed";
    }
};

std::string rtspUrl(std::uint16_t port, const char* camera = "1") {
    return "rtsp://127.0.0.1:" + std::to_string(port) + "/mpeg4/" + camera + "/media.orv";
}

} // namespace

TEST_F(Ffprobe, ReadsRtspOverEveryTransport) {
    for (const char* codec : {"mpeg4", "h264"}) {
        const TestEncoder encoder({"--kinds", "rtsp-unicast,rtsp-tcp,rtsp-http", "--codec", codec});
        const std::string expected = std::string(codec) + ",160,120";
        EXPECT_THAT(probe("-rtsp_transport udp " + rtspUrl(encoder.rtsp())), testing::HasSubstr(expected));
        EXPECT_THAT(probe("-rtsp_transport tcp " + rtspUrl(encoder.rtsp(), "quad")),
                    testing::HasSubstr(expected));
        EXPECT_THAT(probe("-rtsp_transport http " + rtspUrl(encoder.http())), testing::HasSubstr(expected));
    }
}

TEST_F(Ffprobe, ReadsRtspWithCredentials) {
    const TestEncoder encoder({"--kinds", "rtsp-tcp", "--user", "joe", "--password", "pw"});
    const std::string rest = "@127.0.0.1:" + std::to_string(encoder.rtsp()) + "/mpeg4/1/media.orv";
    EXPECT_THAT(probe("-rtsp_transport tcp rtsp://joe:pw" + rest), testing::HasSubstr("mpeg4,160,120"));
    EXPECT_EQ(probe("-rtsp_transport tcp rtsp://joe:no" + rest), "");
}

TEST_F(Ffprobe, ReadsMotionJpegAndMpeg2OverHttp) {
    const TestEncoder encoder({"--kinds", "mjpeg,mpeg2"});
    const std::string host = "http://127.0.0.1:" + std::to_string(encoder.http());
    EXPECT_THAT(probe("-f mpjpeg " + host + "/vexo-cgi/mjpg/video.cgi"), testing::HasSubstr("mjpeg,160,120"));
    EXPECT_THAT(probe(host + "/vexo-cgi/mpeg2/video.cgi"), testing::HasSubstr("mpeg2video,160,120"));
}

TEST_F(Ffprobe, ReadsSound) {
    const TestEncoder encoder({"--audio"});
    EXPECT_THAT(probe("-f mulaw -ar 8000 http://127.0.0.1:" + std::to_string(encoder.http()) +
                      "/vexo-cgi/audio/receive.cgi"),
                testing::HasSubstr("pcm_mulaw"));
}

TEST_F(Ffprobe, ReadsMulticasts) {
    if (const std::string reason = enterNetworkNamespace(); !reason.empty())
        GTEST_SKIP() << reason;
    const TestEncoder encoder({"--kinds", "rtsp-multicast,sdp", "--audio"});
    EXPECT_THAT(probe("-rtsp_transport udp_multicast " + rtspUrl(encoder.rtsp())),
                testing::HasSubstr("mpeg4,160,120"));
    const std::string file =
        std::filesystem::temp_directory_path() / ("guide-" + std::to_string(getpid()) + ".sdp");
    std::ofstream(file) << get(encoder.http(), "/view/sdp/guide.sdp").body;
    const std::string streams = probe("-protocol_whitelist file,udp,rtp " + file);
    std::filesystem::remove(file);
    EXPECT_THAT(streams, testing::HasSubstr("mpeg2video,160,120"));
    EXPECT_THAT(streams, testing::HasSubstr("mp2"));
}
