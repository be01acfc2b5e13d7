// Sources that a web server has: video files, HLS, and SDP files that announce RTP packets. ffmpeg makes and sends the
// video, Python's http.server has the files.
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/appliance/isolation.h"
#include "tests/peers/peer_program.h"
#include "tests/support/certificate.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <optional>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using testing::HasSubstr;
using testing::Not;

constexpr int mark = 37;
constexpr const char* secret = "se/c:r@et";

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

int connectTo(int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ? fd : -1;
}

class WebServer {
public:
    WebServer(const std::string& folder, std::vector<std::string> options) {
        options.insert(options.begin(), {HOUSE_ROOT "/tests/peers/web_server.py", folder});
        program_.emplace("python3", options);
        if (!eventually([&] { return program_->output().find('\n') != std::string::npos; }))
            throw std::runtime_error("web_server.py does not start: " + program_->output());
        port_ = std::atoi(program_->output().c_str() + std::string("port=").size());
    }
    std::string place() const { return "127.0.0.1:" + std::to_string(port_); }
    std::string url(const std::string& path) const { return "http://" + place() + "/" + path; }
    std::string requests() const { return program_->output(); }

private:
    std::optional<peers::Program> program_;
    int port_ = 0;
};

class CameraWeb : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"ffmpeg", "python3"}); !reason.empty())
            GTEST_SKIP() << reason;
    }

    void run(const std::string& arguments) {
        const appliance::Finished finished =
            peers::run("ffmpeg", wordsOf("-v error -nostdin -y " + arguments));
        ASSERT_EQ(finished.status, 0) << finished.errors;
    }
    // Three seconds of pictures with the mark, and a tone.
    std::string clip() {
        const std::string file = media_.file("clip.mkv");
        if (std::filesystem::exists(file))
            return file;
        const appliance::Encoder camera("Camera", mark, wordsOf("--width 352 --height 288"),
                                        decoder_.root() + "/camera.log");
        run("-f mpjpeg -i http://" + camera.address() +
            "/vexo-cgi/mjpg/video.cgi?camera=1 -f lavfi -i sine=frequency=1000 -t 3 -c:v libx264 -g 10 "
            "-bf 0 -c:a aac " +
            file);
        return file;
    }
    void make(const std::string& name, const std::string& how) {
        if (!std::filesystem::exists(media_.file(name)))
            run("-i " + clip() + " " + how + " " + media_.file(name));
    }
    WebServer& serve(std::vector<std::string> options = {}) {
        return server_.emplace(media_.file(""), std::move(options));
    }
    std::string refusal(const std::string& name, const std::string& url) const {
        return decoder_.ctl({"add", name, url}).errors;
    }
    std::string refusal(const std::string& url) const { return refusal("Yard", url); }
    std::string reason() const { return decoder_.sourceValue(0, "Reason"); }

    Appliance decoder_;
    peers::Folder media_; // its path has no blank
    std::optional<WebServer> server_;
};

struct WebFile {
    const char* name;
    const char* how;
};

class CameraWebFiles : public CameraWeb, public testing::WithParamInterface<WebFile> {};

TEST_P(CameraWebFiles, AreAddedAndPlayedAgainAndAgain) {
    make(GetParam().name, GetParam().how);
    const std::string url = serve().url(GetParam().name);
    const CameraGateway gateway(decoder_);
    decoder_.start();
    const appliance::Finished added = decoder_.ctl({"add", "Yard", url});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr("H264, 352x288, "));
    EXPECT_THAT(added.output, HasSubstr(" over HTTP"));
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    EXPECT_EQ(decoder_.sourceValue(0, "VideoSourceType"), "rtsp-tcp");
    // Its 25 pictures a second are not held up by the sound between them.
    const auto rate = [&] { return std::atof(decoder_.sourceValue(0, "FrameRate").c_str()); };
    EXPECT_TRUE(eventually([&] { return rate() > 20; })) << rate();
    // The clip has three seconds.
    EXPECT_FALSE(
        eventually([&] { return gateway.log().find("ended") != std::string::npos; }, appliance::Seconds(5)))
        << gateway.log();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    EXPECT_EQ(reason(), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, CameraWebFiles,
                         testing::Values(WebFile{"clip.mp4", "-c copy -movflags +faststart"},
                                         WebFile{"copy.mkv", "-c copy"}, WebFile{"clip.ts", "-c copy"},
                                         WebFile{"list.m3u8", "-c copy -f hls -hls_time 1 -hls_list_size 0"}),
                         [](const auto& instance) {
                             std::string name = instance.param.name;
                             name[name.find('.')] = '_';
                             return name;
                         });

TEST_F(CameraWeb, WhatCannotBePlayedIsRefusedWithTheReason) {
    make("clip.ts", "-c copy");
    make("late.mp4", "-c copy"); // its index is at the end
    media_.write("text.mp4", std::string(5000, 'x'));
    const WebServer& server = serve();
    const CameraGateway gateway(decoder_);
    EXPECT_THAT(refusal(server.url("text.mp4")), HasSubstr("sends can't be read as video"));
    EXPECT_THAT(refusal(server.url("none.mp4")), HasSubstr("has no stream at this path"));
    EXPECT_THAT(refusal(server.url("late.mp4")), HasSubstr("byte ranges"));
    const std::string name(64, 'a'); // too long to be asked for anywhere
    EXPECT_THAT(refusal("http://" + name + "/clip.mp4"), HasSubstr("the name " + name + " is unknown"));
    EXPECT_THAT(refusal("http://127.0.0.1:" + std::to_string(peers::freePort()) + "/clip.mp4"),
                HasSubstr("refuses connections"));
}

struct WebAnswer {
    const char* title;
    const char* file;  // the name says nothing, or something else than the bytes
    const char* how;   // of ffmpeg
    const char* type;  // the Content-Type
    const char* shown; // what the decoder says of it
};

class CameraWebAnswers : public CameraWeb, public testing::WithParamInterface<WebAnswer> {};

TEST_P(CameraWebAnswers, DecideWhatTheUrlDoesNotSay) {
    const WebAnswer& answer = GetParam();
    make(answer.file, answer.how);
    const std::string url = serve({"--type", answer.type}).url(answer.file);
    decoder_.addSource("By hand", {{"URL", url}}); // its type is learned
    const CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    EXPECT_EQ(decoder_.sourceValue(0, "VideoSourceType"), "rtsp-tcp");
    const appliance::Finished added = decoder_.ctl({"add", "Yard", url});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr(answer.shown));
    EXPECT_EQ(decoder_.ctl({"select", "Yard"}).status, 0);
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, CameraWebAnswers,
    testing::Values(
        WebAnswer{"TypeOfAFile", "live", "-c copy -f mpegts", "video/mp2t", "H264, 352x288, "},
        WebAnswer{"BytesOfAStream", "live", "-c copy -f mpegts", "application/octet-stream",
                  "H264, 352x288, "},
        WebAnswer{"BytesOfMatroska", "live", "-c copy -f matroska", "text/plain", "H264, 352x288, "},
        WebAnswer{"TypeOfAPlaylist", "live", "-c copy -f hls -hls_time 1 -hls_list_size 0",
                  "application/vnd.apple.mpegurl", "H264, 352x288, "},
        WebAnswer{"APlaylistThatIsNamedLikeAFile", "live.mp4", "-c copy -f hls -hls_time 1 -hls_list_size 0",
                  "application/octet-stream", "H264, 352x288, "}),
    [](const auto& instance) { return std::string(instance.param.title); });

TEST_F(CameraWeb, MotionJpegThatIsNamedLikeAFilePlays) {
    // It takes any query.
    const appliance::Encoder camera("Camera", mark, wordsOf("--width 352 --height 288"),
                                    decoder_.root() + "/camera.log");
    decoder_.addSource(
        "Yard", {{"URL", "http://" + camera.address() + "/vexo-cgi/mjpg/video.cgi?camera=1&name=.mp4"}});
    const CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    EXPECT_EQ(decoder_.sourceValue(0, "VideoSourceType"), "mjpeg");
}

TEST_F(CameraWeb, PartsThatNoTypeAnnouncesPlay) {
    const appliance::Encoder camera("Camera", mark, wordsOf("--width 352 --height 288"),
                                    decoder_.root() + "/camera.log");
    media_.write("page", std::string(100'000, '-'));
    // The encoder's stream, from somewhere in a picture on, with another type.
    const std::string address = camera.address();
    const appliance::Oddity untyped([address](int fd) {
        const int port = std::atoi(address.substr(address.rfind(':') + 1).c_str());
        const int from = connectTo(port);
        appliance::readRequest(fd);
        appliance::writeAll(from, "GET /vexo-cgi/mjpg/video.cgi?camera=1 HTTP/1.0\r\n\r\n");
        appliance::writeAll(fd, "HTTP/1.0 200 OK\r\nContent-Type: application/octet-stream\r\n\r\n");
        char bytes[4096];
        std::size_t skipped = 0;
        for (ssize_t count = 0; (count = read(from, bytes, sizeof bytes)) > 0;) {
            const bool skips = skipped < 3000;
            skipped += static_cast<std::size_t>(count);
            if (!skips && !appliance::writeAll(fd, {bytes, static_cast<std::size_t>(count)}))
                return;
        }
    });
    const CameraGateway gateway(decoder_);
    decoder_.start();
    const appliance::Finished added = decoder_.ctl({"add", "Yard", "http://" + untyped.address() + "/video"});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    EXPECT_THAT(refusal("Page", serve().url("page")),
                HasSubstr("sends \"application/octet-stream\", not a Motion JPEG stream"));
}

TEST_F(CameraWeb, NothingThatAServerSendsOpensFilesOfTheDecoder) {
    make("clip.ts", "-c copy");
    const std::string file = media_.file("clip.ts");
    const auto list = [](const std::string& place) {
        return "#EXTM3U\n#EXT-X-TARGETDURATION:3\n#EXTINF:3,\n" + place + "\n#EXT-X-ENDLIST\n";
    };
    media_.write("good.m3u8", list("clip.ts"));
    media_.write("url.m3u8", list("file://" + file));
    media_.write("protocol.m3u8", list("file:" + file));
    media_.write("nested.m3u8", "#EXTM3U\n#EXT-X-STREAM-INF:BANDWIDTH=1000\nurl.m3u8\n");
    media_.write("concat.mp4", "ffconcat version 1.0\nfile " + file + "\n");
    media_.write("concat.m3u8", "ffconcat version 1.0\nfile " + file + "\n");
    media_.write("list.mp4", list("clip.ts"));
    const WebServer& server = serve();
    const CameraGateway gateway(decoder_);
    for (const char* name :
         {"url.m3u8", "protocol.m3u8", "nested.m3u8", "concat.mp4", "concat.m3u8", "list.mp4"})
        EXPECT_NE(refusal(server.url(name)), "") << name;
    EXPECT_EQ(refusal(server.url("good.m3u8")), "");
}

TEST_F(CameraWeb, CredentialsAreUsedAndNeverShown) {
    make("clip.ts", "-c copy");
    const WebServer& server = serve({"--user", std::string("viewer:") + secret});
    decoder_.addSource("Yard",
                       {{"URL", server.url("clip.ts")}, {"UserName", "viewer"}, {"Password", secret}});
    const CameraGateway gateway(decoder_);
    EXPECT_THAT(refusal("Other", server.url("clip.ts")), HasSubstr("asks for a user name and a password"));
    EXPECT_THAT(refusal("Other", "http://viewer:other@" + server.place() + "/clip.ts"),
                HasSubstr("refuses the user name or password"));
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    std::string seen = gateway.log() + decoder_.log() + decoder_.ctl({"source", "0"}).output;
    for (const auto& entry : std::filesystem::directory_iterator("/proc"))
        seen += appliance::readFile(entry.path().string() + "/cmdline").find("camera-input") == 0
                    ? appliance::readFile(entry.path().string() + "/cmdline")
                    : "";
    EXPECT_THAT(seen, HasSubstr("camera-input"));
    EXPECT_THAT(seen, Not(HasSubstr(secret)));
}

TEST_F(CameraWeb, CertificatesAreCheckedForSegmentsToo) {
    make("list.m3u8", "-c copy -f hls -hls_time 1 -hls_list_size 0");
    const scripted::Certificate certificate;
    const scripted::Certificate other("DNS:elsewhere");
    media_.write("server.pem", certificate.pem() + certificate.keyPem());
    media_.write("other.pem", other.pem() + other.keyPem());
    const WebServer segments(media_.file(""), {"--pem", media_.file("other.pem")});
    const WebServer& server = serve({"--pem", media_.file("server.pem")});
    media_.write("foreign.m3u8", "#EXTM3U\n#EXT-X-TARGETDURATION:1\n#EXTINF:1,\nhttps://" + segments.place() +
                                     "/list0.ts\n#EXT-X-ENDLIST\n");
    const CameraGateway gateway(decoder_);
    const std::string url = "https://" + server.place() + "/list.m3u8";
    EXPECT_THAT(refusal(url), HasSubstr("or its certificate is refused"));
    EXPECT_EQ(decoder_.ctl({"set", "Network.TLS.CAFile", media_.file("server.pem")}).status, 0);
    EXPECT_NE(refusal("https://" + server.place() + "/foreign.m3u8"), "");
    EXPECT_EQ(refusal(url), "");
    EXPECT_EQ(decoder_.ctl({"set", "Network.TLS.Verify", "no"}).status, 0);
    EXPECT_EQ(decoder_.ctl({"add", "Other", "https://" + server.place() + "/foreign.m3u8"}).errors, "");
}

TEST_F(CameraWeb, AnSdpFileOfAMulticastIsPlayedAndComesBackAfterABreak) {
    if (!appliance::isolate())
        GTEST_SKIP() << "multicast needs a network namespace, which this user may not create";
    const std::string file = clip();
    const auto send = [&] {
        return std::make_unique<peers::Program>(
            "ffmpeg",
            wordsOf("-v error -nostdin -re -stream_loop -1 -i " + file + " -an -c copy -f rtp -sdp_file " +
                    media_.file("camera.sdp") + " rtp://239.1.2.3:5004?ttl=1"));
    };
    std::unique_ptr<peers::Program> camera = send();
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(media_.file("camera.sdp")); }));
    const CameraGateway gateway(decoder_);
    decoder_.start();
    const appliance::Finished added = decoder_.ctl({"add", "Yard", serve().url("camera.sdp")});
    EXPECT_EQ(added.status, 0) << added.errors;
    EXPECT_THAT(added.output, HasSubstr("over UDP"));
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    camera.reset();
    EXPECT_TRUE(eventually([&] { return reason().find("has stopped sending") != std::string::npos; }))
        << reason();
    camera = send();
    EXPECT_TRUE(eventually([&] { return reason() == ""; }, appliance::Seconds(60))) << reason();
    EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
}

TEST_F(CameraWeb, AnSdpFileWithoutPacketsSaysSo) {
    const int port = peers::freePort();
    media_.write("camera.sdp", "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\nm=video " +
                                   std::to_string(port) + " RTP/AVP 96\na=rtpmap:96 H264/90000\n");
    const CameraGateway gateway(decoder_);
    EXPECT_THAT(refusal(serve().url("camera.sdp")), HasSubstr("no packets come of the stream"));
}

} // namespace
