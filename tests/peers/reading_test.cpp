// ffmpeg and gst-launch-1.0 read every kind of stream of video-encoder and get moving pictures.
#include "tests/fakes/network_namespace.h"
#include "tests/peers/peer_program.h"

#include <gmock/gmock.h>
#include <ostream>
#include <set>
#include <sstream>

namespace {

constexpr int pictures = 5;

struct Reader {
    const char* name;
    const char* encoder; // options of video-encoder
    const char* program;
    const char* input; // for the program; {http} and {rtsp} are replaced by the ports
};

std::ostream& operator<<(std::ostream& out, const Reader& reader) {
    return out << reader.name;
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

std::string replaced(std::string text, const std::string& word, int port) {
    for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos;)
        text.replace(at, word.size(), std::to_string(port));
    return text;
}

// The distinct checksums: both programs print one line per picture. Comments begin with "#".
std::set<std::string> checksums(const std::string& output) {
    std::istringstream lines(output);
    std::set<std::string> sums;
    for (std::string line; std::getline(lines, line);)
        if (!line.empty() && line.front() != '#')
            sums.insert(line.substr(line.find_last_of(' ') + 1));
    return sums;
}

class Reading : public testing::TestWithParam<Reader> {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({GetParam().program}); !reason.empty())
            GTEST_SKIP() << reason;
        if (const std::string reason = enterNetworkNamespace(); !reason.empty())
            GTEST_SKIP() << reason;
    }

    static appliance::Finished read(const peers::VideoEncoder& encoder) {
        const std::string input =
            replaced(replaced(GetParam().input, "{http}", encoder.http()), "{rtsp}", encoder.rtsp());
        if (std::string(GetParam().program) == "ffmpeg")
            return peers::run("ffmpeg",
                              wordsOf("-v error -nostdin -probesize 200000 -analyzeduration 500000 " + input +
                                      " -an -frames:v " + std::to_string(pictures) + " -f framemd5 -"));
        return peers::run("gst-launch-1.0", wordsOf("-q " + input + " ! identity eos-after=" +
                                                    std::to_string(pictures) + " ! checksumsink hash=md5"));
    }
};

TEST_P(Reading, ShowsMovingPictures) {
    const peers::VideoEncoder encoder(wordsOf(std::string(GetParam().encoder) + " --width 352 --height 288"));
    const appliance::Finished reader = read(encoder);
    EXPECT_EQ(reader.status, 0) << reader.errors;
    EXPECT_GE(checksums(reader.output).size(), pictures - 1U) << reader.output << reader.errors;
}

INSTANTIATE_TEST_SUITE_P(
    Readers, Reading,
    testing::Values(
        Reader{"FfmpegMjpeg", "--kinds mjpeg", "ffmpeg",
               "-f mpjpeg -i http://127.0.0.1:{http}/vexo-cgi/mjpg/video.cgi"},
        Reader{"FfmpegMpeg2", "--kinds mpeg2", "ffmpeg",
               "-f mpegvideo -i http://127.0.0.1:{http}/vexo-cgi/mpeg2/video.cgi"},
        Reader{"FfmpegGuide", "--kinds sdp", "ffmpeg",
               "-protocol_whitelist http,tcp,udp,rtp -i http://127.0.0.1:{http}/view/sdp/guide.sdp"},
        Reader{"FfmpegRtspUdp", "--kinds rtsp-unicast", "ffmpeg",
               "-rtsp_transport udp -i rtsp://127.0.0.1:{rtsp}/mpeg4/1/media.orv"},
        Reader{"FfmpegRtspMulticast", "--kinds rtsp-multicast", "ffmpeg",
               "-rtsp_transport udp_multicast -i rtsp://127.0.0.1:{rtsp}/mpeg4/1/media.orv"},
        Reader{"FfmpegRtspTcp", "--kinds rtsp-tcp --codec h264", "ffmpeg",
               "-rtsp_transport tcp -i rtsp://127.0.0.1:{rtsp}/mpeg4/1/media.orv"},
        Reader{"FfmpegRtspHttp", "--kinds rtsp-http", "ffmpeg",
               "-rtsp_transport http -i rtsp://127.0.0.1:{http}/mpeg4/1/media.orv"},
        Reader{"GStreamerMjpeg", "--kinds mjpeg", "gst-launch-1.0",
               "souphttpsrc location=http://127.0.0.1:{http}/vexo-cgi/mjpg/video.cgi ! multipartdemux ! "
               "jpegdec"},
        Reader{"GStreamerMpeg2", "--kinds mpeg2", "gst-launch-1.0",
               "souphttpsrc location=http://127.0.0.1:{http}/vexo-cgi/mpeg2/video.cgi ! mpegvideoparse ! "
               "avdec_mpeg2video"},
        Reader{"GStreamerRtspUdp", "--kinds rtsp-unicast", "gst-launch-1.0",
               "rtspsrc protocols=udp latency=0 location=rtsp://127.0.0.1:{rtsp}/mpeg4/1/media.orv ! "
               "rtpmp4vdepay ! "
               "avdec_mpeg4"},
        Reader{"GStreamerRtspTcp", "--kinds rtsp-tcp --codec h264", "gst-launch-1.0",
               "rtspsrc protocols=tcp latency=0 location=rtsp://127.0.0.1:{rtsp}/mpeg4/1/media.orv ! "
               "rtph264depay ! "
               "avdec_h264"}),
    [](const auto& instance) { return instance.param.name; });

} // namespace
