// Cameras behind TLS and Digest credentials with SHA-256. RTSP over TLS is that of GStreamer's server. Motion JPEG over
// HTTPS, and SHA-256, which no packaged RTSP server asks for, come from tests/peers/secure_camera.py with Python's ssl and
// hashlib.
#include "appliance/players/testing/test_rtsp_server.h"
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/peers/peer_program.h"
#include "tests/support/certificate.h"

#include <gmock/gmock.h>
#include <optional>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::eventually;
using player::TestRtspServer;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr int rtspMark = 9; // of TestRtspServer's pictures
constexpr int httpMark = 57;
constexpr const char* refused = "the certificate of 127.0.0.1:";

enum class Camera { rtsps, https };

class SecureFront {
public:
    SecureFront(const std::string& protocol, const std::string& camera, std::vector<std::string> more) {
        more.insert(more.begin(), {HOUSE_ROOT "/tests/peers/secure_camera.py", protocol, camera});
        program_.emplace("python3", more);
        if (!eventually([&] { return program_->output().starts_with("port="); }))
            throw std::runtime_error("secure_camera.py does not start: " + program_->output());
    }
    std::string place() const {
        return "127.0.0.1:" +
               std::to_string(std::atoi(program_->output().c_str() + std::string("port=").size()));
    }

private:
    std::optional<peers::Program> program_;
};

class CameraSecurity : public testing::TestWithParam<Camera> {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"python3"}); !reason.empty())
            GTEST_SKIP() << reason;
    }

    // Starts a camera with this certificate; returns its URL.
    std::string start(const scripted::Certificate& certificate) {
        const std::string pem = certificate.pem() + certificate.keyPem();
        if (GetParam() == Camera::rtsps) {
            rtsp_.emplace(player::RtspServerOptions{.digest = true, .path = "/live", .tls = pem});
            return "rtsps://127.0.0.1:" + std::to_string(rtsp_->port()) + "/live";
        }
        http_.emplace("Camera", httpMark,
                      std::vector<std::string>{"--user", "viewer", "--password", "secret", "--width", "352",
                                               "--height", "288"},
                      decoder_.root() + "/camera.log");
        appliance::writeFile(decoder_.root() + "/server.pem", pem);
        front_.emplace("http", http_->address(),
                       std::vector<std::string>{"--pem", decoder_.root() + "/server.pem"});
        return "https://" + front_->place() + "/vexo-cgi/mjpg/video.cgi?camera=1";
    }
    void trust(const scripted::Certificate& certificate) {
        appliance::writeFile(decoder_.root() + "/trusted.pem", certificate.pem());
        decoder_.set("Network.TLS.CAFile", decoder_.root() + "/trusted.pem");
    }
    void add(const std::string& url) {
        decoder_.addSource("Yard", {{"URL", url}, {"UserName", "viewer"}, {"Password", "secret"}});
    }
    std::string reason() const { return decoder_.sourceValue(0, "Reason"); }
    static int mark() { return GetParam() == Camera::rtsps ? rtspMark : httpMark; }

    Appliance decoder_;
    std::optional<TestRtspServer> rtsp_;
    std::optional<appliance::Encoder> http_;
    std::optional<SecureFront> front_;
};

TEST_P(CameraSecurity, ATrustedCertificateIsPlayed) {
    const scripted::Certificate certificate;
    trust(certificate);
    add(start(certificate));
    const CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(mark())) << gateway.log();
    EXPECT_EQ(reason(), "");
}

TEST_P(CameraSecurity, AnUnknownCertificateIsRefusedWithTheReason) {
    const scripted::Certificate certificate;
    const std::string url = start(certificate);
    add(url);
    const CameraGateway gateway(decoder_);
    const appliance::Finished added = decoder_.ctl({"add", "Other", url});
    EXPECT_EQ(added.status, 1);
    EXPECT_THAT(added.errors, HasSubstr(refused));
    decoder_.start();
    EXPECT_TRUE(eventually([&] { return reason().starts_with(refused); })) << reason();
    EXPECT_THAT(reason(), HasSubstr("self-signed"));
}

TEST_P(CameraSecurity, ACertificateOfAnotherHostIsRefusedWithTheReason) {
    const scripted::Certificate certificate("DNS:elsewhere");
    trust(certificate);
    add(start(certificate));
    const CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(eventually([&] { return reason().starts_with(refused); })) << reason();
}

TEST_P(CameraSecurity, WithoutVerificationAnyCertificateIsPlayed) {
    const scripted::Certificate certificate("DNS:elsewhere");
    decoder_.set("Network.TLS.Verify", "no");
    add(start(certificate));
    const CameraGateway gateway(decoder_);
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(mark())) << gateway.log();
}

TEST_P(CameraSecurity, AddPlaysItWithThePasswordFromStandardInputAndRefusesAWrongOne) {
    const scripted::Certificate certificate;
    trust(certificate);
    const std::string url = start(certificate);
    const std::string place = url.substr(url.find("://") + 3);
    const std::string scheme = url.substr(0, url.find("://") + 3);
    const CameraGateway gateway(decoder_);
    const appliance::Finished wrong = decoder_.ctl({"add", "Yard", scheme + "viewer:wrong@" + place});
    EXPECT_EQ(wrong.status, 1);
    EXPECT_THAT(wrong.errors, HasSubstr("refuses the user name or password"));
    const appliance::Finished right = decoder_.ctl({"add", "Yard", scheme + "viewer:secret@" + place});
    EXPECT_EQ(right.status, 0) << right.errors;
    EXPECT_THAT(right.output, HasSubstr("352x288"));
}

INSTANTIATE_TEST_SUITE_P(Kinds, CameraSecurity, testing::Values(Camera::rtsps, Camera::https),
                         [](const auto& instance) {
                             return instance.param == Camera::rtsps ? "Rtsps" : "Https";
                         });

class DigestSha256 : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = peers::missing({"python3"}); !reason.empty())
            GTEST_SKIP() << reason;
    }
    void expectPlayedWithTheRightPasswordOnly(const std::string& url, int mark) {
        decoder_.addSource("Right", {{"URL", url}, {"UserName", "viewer"}, {"Password", "s3cret"}});
        const CameraGateway gateway(decoder_);
        decoder_.start();
        EXPECT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
        const std::string place = url.substr(url.find("//") + 2);
        EXPECT_THAT(
            decoder_.ctl({"add", "Wrong", url.substr(0, url.find("//") + 2) + "viewer:another@" + place})
                .errors,
            HasSubstr("refuses the user name or password"));
        EXPECT_THAT(decoder_.ctl({"add", "None", url}).errors,
                    HasSubstr("asks for a user name and a password"));
        EXPECT_EQ(decoder_.sourceValue(0, "Reason"), "");
    }

    Appliance decoder_;
};

TEST_F(DigestSha256, OverRtsp) {
    const TestRtspServer camera({.path = "/live"});
    const SecureFront front("rtsp", "127.0.0.1:" + std::to_string(camera.port()),
                            {"--user", "viewer:s3cret"});
    expectPlayedWithTheRightPasswordOnly("rtsp://" + front.place() + "/live", rtspMark);
}

TEST_F(DigestSha256, OverHttp) {
    const appliance::Encoder camera("Camera", httpMark, {"--width", "352", "--height", "288"},
                                    decoder_.root() + "/camera.log");
    const SecureFront front("http", camera.address(), {"--user", "viewer:s3cret"});
    expectPlayedWithTheRightPasswordOnly("http://" + front.place() + "/vexo-cgi/mjpg/video.cgi?camera=1",
                                         httpMark);
}

} // namespace
