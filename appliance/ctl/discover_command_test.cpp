#include "appliance/ctl/discover_command.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

Discovery yardAndGate() {
    Discovery discovery;
    discovery.cameras.resize(2);
    Camera& yard = discovery.cameras[0];
    yard.number = 1;
    yard.name = "Yard";
    yard.address = "192.168.1.20";
    yard.state = CameraState::Ready;
    yard.streams.resize(2);
    yard.streams[0].profile = {"P1", "main", "V", "H.264", 1920, 1080, 25, 4096, "G711"};
    yard.streams[0].url = "rtsp://192.168.1.20/main";
    yard.streams[1].profile = {"P2", "small", "V", "JPEG", 640, 480, 12.5, 0, ""};
    yard.streams[1].problem = "its address is not understood";
    Camera& gate = discovery.cameras[1];
    gate.number = 2;
    gate.address = "192.168.1.21:8080";
    gate.state = CameraState::NeedsPassword;
    return discovery;
}

TEST(DiscoveryText, IsATable) {
    Discovery discovery = yardAndGate();
    discovery.notes = {"3 answers were not understood and not used"};
    EXPECT_EQ(discoveryText(discovery),
              "1  Yard  192.168.1.20       ready\n"
              "      main   H.264  1920x1080  25/s    rtsp://192.168.1.20/main\n"
              "      small  JPEG   640x480    12.5/s  its address is not understood\n"
              "2  -     192.168.1.21:8080  needs a user name and a password\n"
              "3 answers were not understood and not used\n");
}

TEST(DiscoveryText, NothingFoundIsSaid) {
    EXPECT_EQ(discoveryText({}), "no camera has answered\n");
}

TEST(DiscoveryText, TextsOfCamerasArePrintableAndShort) {
    Discovery discovery = yardAndGate();
    discovery.cameras[0].name = "\x1b[31mred\n\xff";
    discovery.cameras[1].name = std::string(1000, 'x');
    const std::string text = discoveryText(discovery);
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
    EXPECT_EQ(text.find('\xff'), std::string::npos);
    EXPECT_NE(text.find(std::string(60, 'x') + "..."), std::string::npos);
    EXPECT_EQ(text.find(std::string(61, 'x')), std::string::npos);
    EXPECT_EQ(std::ranges::count(text, '\n'), 4);
}

TEST(SourceToAdd, IsWhatTheUserTypesWithoutADiscovery) {
    const SourceToAdd source = sourceToAdd(0, "", "Yard", "rtsp://10.0.0.5/");
    EXPECT_EQ(source.name, "Yard");
    EXPECT_EQ(source.url, "rtsp://10.0.0.5/");
}

} // namespace
