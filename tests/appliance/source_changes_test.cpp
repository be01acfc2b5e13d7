// Adding, removing, renaming and ordering sources of a decoder that runs: the change is in force without a further command.
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <array>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Encoder;
using appliance::eventually;
using appliance::Finished;
using testing::HasSubstr;
using testing::Not;

class SourceChanges : public testing::Test {
protected:
    SourceChanges() { decoder_.setManual(); }

    // A camera whose pictures have this mark.
    Encoder& camera(int mark) {
        cameras_.push_back(
            std::make_unique<Encoder>("Camera", mark,
                                      std::vector<std::string>{"--kinds", "rtsp-tcp", "--codec", "h264",
                                                               "--width", "352", "--height", "288"},
                                      decoder_.root() + "/camera" + std::to_string(mark) + ".log"));
        return *cameras_.back();
    }
    static std::string url(const Encoder& camera) {
        return "rtsp://" + camera.address() + "/mpeg4/1/media.orv";
    }
    void addSource(const std::string& name, int mark) {
        decoder_.addSource(name, {{"URL", url(camera(mark))}});
    }
    void start() {
        gateway_ = std::make_unique<CameraGateway>(decoder_);
        decoder_.start();
        EXPECT_TRUE(decoder_.waitForLog("START_UL(1) -> ")); // the start drops selections that come before
    }
    std::string done(const std::vector<std::string>& arguments) {
        const Finished finished = decoder_.ctl(arguments);
        EXPECT_EQ(finished.status, 0) << finished.errors << gateway_->log();
        return finished.output;
    }

    Appliance decoder_;
    std::vector<std::unique_ptr<Encoder>> cameras_;
    std::unique_ptr<CameraGateway> gateway_;
};

TEST_F(SourceChanges, AnAddedCameraCanBeSelectedAtOnceAndTheShownOneStays) {
    addSource("One", 41);
    addSource("Two", 42);
    start();
    ASSERT_TRUE(decoder_.showsMoving(41));
    done({"select", "Two"});
    ASSERT_TRUE(decoder_.showsMoving(42));
    EXPECT_THAT(done({"add", "Three", url(camera(43))}),
                HasSubstr("added as source 2 \"Three\"; in force: the decoder has connected again"));
    EXPECT_TRUE(decoder_.showsMoving(42));
    done({"select", "Three"});
    EXPECT_TRUE(decoder_.showsMoving(43));
    EXPECT_THAT(done({"apply"}), HasSubstr("nothing to apply"));
}

TEST_F(SourceChanges, TheFirstCameraOfAnEmptyDecoderShows) {
    start();
    EXPECT_TRUE(decoder_.waitForLog("No sources available in this mode."));
    EXPECT_THAT(done({"add", "One", url(camera(41))}), HasSubstr("in force"));
    EXPECT_TRUE(decoder_.showsMoving(41)) << gateway_->log();
}

TEST_F(SourceChanges, ADecoderThatWasDisconnectedStaysSo) {
    addSource("One", 41);
    start();
    ASSERT_TRUE(decoder_.showsMoving(41));
    done({"disconnect"});
    EXPECT_THAT(done({"add", "Two", url(camera(42))}), HasSubstr("in force when the decoder connects"));
    EXPECT_EQ(decoder_.ctl({"get", "Decoder.Connected"}).output, "no\n");
}

TEST_F(SourceChanges, RemovingTheShownCameraShowsTheFirstAndRemovingTheLastDisconnects) {
    addSource("One", 41);
    addSource("Two", 42);
    start();
    done({"select", "Two"});
    ASSERT_TRUE(decoder_.showsMoving(42));
    EXPECT_THAT(done({"remove", "Two"}), HasSubstr("in force: the decoder has connected again"));
    EXPECT_TRUE(decoder_.showsMoving(41));
    EXPECT_THAT(done({"remove", "One"}),
                HasSubstr("in force: no source is left to show, and the decoder has disconnected"));
    EXPECT_THAT(done({"add", "Three", url(camera(43))}), HasSubstr("in force"));
    EXPECT_TRUE(decoder_.showsMoving(43)) << gateway_->log();
}

TEST_F(SourceChanges, RenamingAndOrderingKeepTheShownCamera) {
    addSource("One", 41);
    addSource("Two", 42);
    start();
    done({"select", "Two"});
    ASSERT_TRUE(decoder_.showsMoving(42));
    EXPECT_THAT(done({"rename", "Two", "Second"}), HasSubstr("in force: the decoder has connected again"));
    EXPECT_TRUE(decoder_.showsMoving(42));
    EXPECT_THAT(done({"order", "Second"}), HasSubstr("in force: the decoder has connected again"));
    EXPECT_TRUE(decoder_.showsMoving(42));
    EXPECT_TRUE(decoder_.waitForSource(0));
    EXPECT_EQ(done({"sources", "--names"}), "Second\nOne\n");
    EXPECT_THAT(done({"source", "0"}), HasSubstr("InForce=yes"));
}

TEST_F(SourceChanges, WithNoApplyThePictureIsNotTouched) {
    addSource("One", 41);
    start();
    ASSERT_TRUE(decoder_.showsMoving(41));
    const int player = decoder_.playerPid();
    EXPECT_THAT(done({"add", "Two", url(camera(42)), "--no-apply"}),
                HasSubstr("in force at the next connect (decoderctl apply: at once)"));
    EXPECT_TRUE(decoder_.showsMoving(41));
    EXPECT_EQ(decoder_.playerPid(), player);
}

TEST_F(SourceChanges, WithoutAGatewayAddSaysSo) {
    addSource("One", 41);
    start();
    ASSERT_TRUE(decoder_.showsMoving(41));
    const std::string log = gateway_->log();
    gateway_.reset();
    const Finished added = decoder_.ctl({"add", "Two", url(camera(42))});
    EXPECT_EQ(added.status, 0) << added.errors << log;
    EXPECT_THAT(added.output, HasSubstr("camera-gateway has not completed it"));
}

// A service manager that a program tells that it is ready.
class NotifySocket {
public:
    explicit NotifySocket(const std::string& path) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~NotifySocket() { close(fd_); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    std::string received() const {
        std::array<char, 100> bytes{};
        const ssize_t count = recv(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT);
        return count < 0 ? "" : std::string(bytes.data(), static_cast<std::size_t>(count));
    }

private:
    int fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

TEST_F(SourceChanges, AUrlByHandPlaysAtTheFirstBoot) {
    addSource("Yard", 41);
    const std::string path = decoder_.root() + "/notify";
    const NotifySocket manager(path);
    gateway_ = std::make_unique<CameraGateway>(decoder_,
                                               std::map<std::string, std::string>{{"NOTIFY_SOCKET", path}});
    ASSERT_TRUE(eventually([&] { return manager.received() == "READY=1"; }));
    // What the supervisor needs is in the file before it starts.
    const std::string file = appliance::readFile(decoder_.parameterFile());
    for (const char* key : {"VideoSourceNumber", "VideoSourceType", "AutoEnabled", "Compression", "Address"})
        EXPECT_THAT(file, HasSubstr(key));
    decoder_.start();
    EXPECT_TRUE(decoder_.showsMoving(41));
    EXPECT_THAT(decoder_.log(), Not(HasSubstr("No sources available")));
}

} // namespace
