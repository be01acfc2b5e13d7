#include "appliance/discovery/found_cameras.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <sys/stat.h>

namespace {

class FoundCameras : public testing::Test {
protected:
    FoundCameras() {
        char name[] = "/tmp/found_cameras.XXXXXX";
        folder_ = mkdtemp(name);
    }
    ~FoundCameras() override { std::filesystem::remove_all(folder_); }

    std::string file() const { return folder_ + "/deeper/found.json"; }

    static Discovery twoCameras() {
        Discovery discovery;
        discovery.cameras.resize(2);
        Camera& ready = discovery.cameras[0];
        ready.number = 1;
        ready.name = "Yard\x1b[2J";
        ready.address = "10.0.0.5";
        ready.state = CameraState::Ready;
        ready.streams.resize(2);
        ready.streams[0].profile = {"P1", "small", "V", "JPEG", 640, 480, 12.5, 0, ""};
        ready.streams[0].url = "http://10.0.0.5/small";
        ready.streams[1].profile = {"P2", "large", "V", "H.264", 1920, 1080, 25, 4096, "G711"};
        ready.streams[1].url = "rtsp://10.0.0.5/large";
        discovery.cameras[1].number = 2;
        discovery.cameras[1].state = CameraState::NeedsPassword;
        return discovery;
    }

    std::string whyNot(int number, const std::string& profile) const {
        try {
            return sourceFromDiscovery(readFoundCameras(file()), number, profile).url;
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    std::string folder_;
};

TEST_F(FoundCameras, AreKeptForTheirOwnerOnly) {
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    struct stat info {};
    ASSERT_EQ(stat(file().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
    const std::vector<Camera> cameras = readFoundCameras(file());
    ASSERT_EQ(cameras.size(), 2U);
    EXPECT_EQ(cameras[0].name, "Yard\x1b[2J");
    EXPECT_EQ(cameras[0].state, CameraState::Ready);
    EXPECT_EQ(cameras[0].streams[0].profile.rate, 12.5);
    EXPECT_EQ(cameras[1].state, CameraState::NeedsPassword);
}

TEST_F(FoundCameras, NextSearchReplacesThem) {
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    ASSERT_EQ(keepFoundCameras({}, file()), "");
    EXPECT_TRUE(readFoundCameras(file()).empty());
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_ + "/deeper"), {}), 1);
}

TEST_F(FoundCameras, BecomeSources) {
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    const SourceToAdd source = sourceFromDiscovery(readFoundCameras(file()), 1, "");
    EXPECT_EQ(source.url, "rtsp://10.0.0.5/large");
    EXPECT_EQ(source.name, "Yard [2J");
    EXPECT_EQ(whyNot(1, "sub"), "http://10.0.0.5/small");
    EXPECT_EQ(whyNot(1, "small"), "http://10.0.0.5/small");
}

TEST_F(FoundCameras, MistakesSayWhatToDo) {
    EXPECT_EQ(whyNot(1, ""), "no cameras were searched for yet: run decoderctl discover first");
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    EXPECT_EQ(whyNot(3, ""), "the last search found 2 cameras, and none has the number 3");
    EXPECT_EQ(whyNot(2, ""), "camera 2 needs a user name and a password: run decoderctl discover --user NAME "
                             "--password-stdin first");
    EXPECT_EQ(whyNot(1, "none"), "camera 1 has no profile \"none\"; it has: small, large");
}

TEST_F(FoundCameras, DamagedFileIsTold) {
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    for (const char* text : {"", "[]", "{\"cameras\":1}", "{\"cameras\":[{\"number\":\"x\"}]}", "\xff"}) {
        std::ofstream(file()) << text;
        EXPECT_EQ(whyNot(1, ""), file() + " is damaged: run decoderctl discover again") << text;
    }
}

TEST_F(FoundCameras, FileThatOthersMayWriteIsNotUsed) {
    ASSERT_EQ(keepFoundCameras(twoCameras(), file()), "");
    chmod(file().c_str(), 0666);
    EXPECT_EQ(whyNot(1, ""), file() + " was not written by this user: run decoderctl discover again");
}

TEST_F(FoundCameras, FolderThatCannotBeWrittenIsTold) {
    std::ofstream(folder_ + "/plain") << "x";
    EXPECT_NE(keepFoundCameras(twoCameras(), folder_ + "/plain/found.json"), "");
}

} // namespace
