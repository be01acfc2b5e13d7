#include "appliance/discovery/camera.h"

#include <gtest/gtest.h>

namespace {

CameraStream stream(const std::string& name, int width, const std::string& source = "1") {
    CameraStream made;
    made.profile.token = "token of " + name;
    made.profile.name = name;
    made.profile.source = source;
    made.profile.width = width;
    made.profile.height = width / 2;
    made.url = "rtsp://10.0.0.5/" + name;
    return made;
}

std::string chosen(const Camera& camera, const std::string& word) {
    const CameraStream* const found = chooseStream(camera, word);
    return found == nullptr ? "none" : found->profile.name;
}

TEST(CameraStreams, MainIsTheLargestAndSubTheSmallest) {
    Camera camera;
    camera.streams = {stream("b", 640), stream("a", 1920), stream("c", 320), stream("other", 4000, "2")};
    EXPECT_EQ(chosen(camera, ""), "a");
    EXPECT_EQ(chosen(camera, "main"), "a");
    EXPECT_EQ(chosen(camera, "sub"), "c");
}

TEST(CameraStreams, ProfileIsChosenByItsNameOrToken) {
    Camera camera;
    camera.streams = {stream("b", 640), stream("a", 1920), stream("other", 4000, "2")};
    EXPECT_EQ(chosen(camera, "b"), "b");
    EXPECT_EQ(chosen(camera, "token of other"), "other");
    EXPECT_EQ(chosen(camera, "d"), "none");
}

TEST(CameraStreams, StreamWithoutAddressIsNotChosen) {
    Camera camera;
    camera.streams = {stream("a", 1920), stream("b", 640)};
    camera.streams[0].url = "";
    EXPECT_EQ(chosen(camera, ""), "b");
    EXPECT_EQ(chosen(camera, "a"), "none");
    EXPECT_EQ(chosen(camera, "sub"), "none");
    EXPECT_EQ(chosen(Camera{}, ""), "none");
}

TEST(CameraState, IsASentence) {
    Camera camera;
    camera.state = CameraState::NeedsPassword;
    EXPECT_EQ(stateText(camera), "needs a user name and a password");
    camera.state = CameraState::NoAnswer;
    camera.reason = "Timeout was reached";
    EXPECT_EQ(stateText(camera), "does not answer: Timeout was reached");
}

} // namespace
