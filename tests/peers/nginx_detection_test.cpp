// Detection of an encoder whose HTTP server is nginx.
#include "detect/network_detection_fixture.h"
#include "tests/peers/nginx.h"
#include "tests/support/certificate.h"

#include <libcommon/libcommon.h>

#include <gmock/gmock.h>

namespace {

using detect_test::statusId;
using peers::Nginx;
using peers::NginxOptions;
using testing::HasSubstr;

const std::string mjpegPath = "/vexo-cgi/mjpg/video.cgi";
const std::map<std::string, std::string> parameters{{"Properties.API.HTTP.Version", "2"},
                                                    {"Brand.ProdFullName", "Static Camera 3"},
                                                    {"ImageSource.NbrOfSources", "4"},
                                                    {"Image.Rotation", "180"},
                                                    {"Properties.Image.Format", "jpeg,mjpeg"}};

// Larger than a response buffer, small enough to be quick.
std::string mjpegFile() {
    std::string file;
    for (int i = 0; i < 20; ++i)
        file += "--boundary\r\nContent-Type: image/jpeg\r\nContent-Length: 10000\r\n\r\n" +
                std::string(10000, 'j');
    return file;
}

NginxOptions mjpegEncoder() {
    NginxOptions options;
    options.parameters = parameters;
    options.files[mjpegPath] = mjpegFile();
    return options;
}

class NginxDetection : public detect_test::NetworkDetection {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"nginx"}); !reason.empty())
            GTEST_SKIP() << reason;
        entry_.userName = "viewer";
        entry_.password = "s3cret";
        entry_.sourceNumber = 2;
    }

    bool detectAt(const Nginx& nginx) { return detect(static_cast<unsigned short>(nginx.port()), 10); }

    void trust(const scripted::Certificate& certificate) {
        write(file("/authorities.pem"), certificate.pem());
        settings_ = "[Network.TLS]\nCAFile = " + file("/authorities.pem") + "\n";
    }

    void expectStatus(const std::map<std::string, std::string>& expected) {
        for (const auto& [key, value] : expected)
            EXPECT_EQ(status(statusId, key), value) << key << '\n' << trace();
    }
};

TEST_F(NginxDetection, MjpegFile) {
    const Nginx nginx(mjpegEncoder());
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mjpeg"},
                  {"ConnectMode", "http"},
                  {"APIVersion", "2"},
                  {"Model", "Static Camera 3"},
                  {"NumberOfVideoSources", "4"},
                  {"ImageRotation", "180"},
                  {"Audio", "no"},
                  {"AudioFormat", "none"}});
    EXPECT_EQ(entry_.rtspHost, "127.0.0.1");
    EXPECT_EQ(entry_.rtspPort, nginx.port());
    EXPECT_EQ(entry_.streamOptions, "camera=2");
}

TEST_F(NginxDetection, OneConnectionIsReusedUntilAStreamNeedsIt) {
    const Nginx nginx(mjpegEncoder());
    EXPECT_TRUE(detectAt(nginx));
    const std::string audio = "/vexo-cgi/audio/receive.cgi";
    const std::vector<Nginx::Asked> asked = nginx.asked(audio);
    EXPECT_EQ(asked.size(), 9U);
    for (const Nginx::Asked& one : asked)
        EXPECT_EQ(one.connection, one.target == audio ? 1 : 0) << one.target;
}

TEST_F(NginxDetection, DescriptionFile) {
    NginxOptions options;
    options.parameters = parameters;
    options.files["/view/sdp/guide.sdp"] = "v=0\r\nm=video 5010 RTP/AVP 32\r\nc=IN IP4 239.1.2.3/16\r\n"
                                           "m=audio 5020 RTP/AVP 14\r\nc=IN IP4 239.1.2.4/16\r\n";
    const Nginx nginx(options);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mpeg2-multicast"},
                  {"ConnectMode", "auto"},
                  {"Audio", "yes"},
                  {"AudioFormat", "mpeg"}});
    EXPECT_EQ(entry_.rtspHost, "239.1.2.3");
    EXPECT_EQ(entry_.rtspPort, 5010);
    EXPECT_EQ(entry_.audioHost, "239.1.2.4");
    EXPECT_EQ(entry_.audioPort, 5020);
}

TEST_F(NginxDetection, OldEncoder) {
    NginxOptions options;
    options.oldParameters = {{"root.BRAND.PRODFULLNAME", "Static Camera 1"}};
    options.files["/vexo-cgi/mpeg2/video.cgi"] = std::string(50000, 'm');
    const Nginx nginx(options);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mpeg2-unicast"},
                  {"APIVersion", "1"},
                  {"Model", "Static Camera 1"},
                  {"NumberOfVideoSources", ""},
                  {"ImageRotation", ""}});
}

TEST_F(NginxDetection, NoKindOfStream) {
    const Nginx nginx(NginxOptions{});
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "20"}, {"APIVersion", "1"}, {"Model", "Unknown"}, {"VideoSourceType", ""}});
}

TEST_F(NginxDetection, BasicCredentials) {
    NginxOptions options = mjpegEncoder();
    options.user = "viewer";
    const Nginx nginx(options);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mjpeg"},
                  {"ConnectMode", "http-auth"},
                  {"APIVersion", "2"},
                  {"Model", "Static Camera 3"}});
}

TEST_F(NginxDetection, WrongCredentials) {
    NginxOptions options = mjpegEncoder();
    options.user = "viewer";
    const Nginx nginx(options);
    entry_.password = "guess";
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "24"}, {"VideoSourceType", ""}});
    EXPECT_EQ(log().find("guess"), std::string::npos);
}

TEST_F(NginxDetection, ViewersAreReferredToTheAdministratorsCgi) {
    NginxOptions options = mjpegEncoder();
    options.viewerIsRefused = true;
    options.adminParameters = parameters;
    const Nginx nginx(options);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mjpeg"},
                  {"ConnectMode", "http"},
                  {"Model", "Static Camera 3"},
                  {"NumberOfVideoSources", "4"}});
}

TEST_F(NginxDetection, TlsWithATrustedCertificate) {
    const scripted::Certificate certificate;
    NginxOptions options = mjpegEncoder();
    options.certificate = &certificate;
    options.user = "viewer";
    const Nginx nginx(options);
    trust(certificate);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "0"},
                  {"VideoSourceType", "mjpeg"},
                  {"ConnectMode", "https"},
                  {"Model", "Static Camera 3"},
                  {"NumberOfVideoSources", "4"}});
    EXPECT_EQ(entry_.rtspPort, nginx.port());
}

// The detection then cannot query anything: over plain HTTP, the port answers with an error.
TEST_F(NginxDetection, AnUnknownCertificateIsRefused) {
    const scripted::Certificate certificate;
    const scripted::Certificate other;
    NginxOptions options = mjpegEncoder();
    options.certificate = &certificate;
    const Nginx nginx(options);
    trust(other);
    EXPECT_TRUE(detectAt(nginx));
    expectStatus({{"ErrorCode", "20"}, {"VideoSourceType", ""}, {"Model", "Unknown"}});
    EXPECT_THAT(log(), HasSubstr("The TLS certificate of 127.0.0.1 was refused"));
}

} // namespace
