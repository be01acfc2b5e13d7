// Many sources added and removed while the decoder plays: numbers are never given again, and nothing is lost or leaks.
//
// SOURCE_CHANGES=1000 in the environment is the long form; without it there are 15 rounds.
#include "tests/appliance/appliance.h"
#include "tests/appliance/camera_gateway.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <set>
#include <sstream>

namespace {

using appliance::Appliance;
using appliance::CameraGateway;
using appliance::Encoder;
using appliance::eventually;

constexpr int mark = 41;
constexpr int warmUp = 5;         // rounds before the first measurement
constexpr long mostGrowth = 4096; // KiB

int rounds() {
    const char* text = std::getenv("SOURCE_CHANGES");
    return std::max(text == nullptr ? 15 : std::atoi(text), warmUp + 1);
}

long memoryOf(pid_t pid) {
    std::istringstream text(appliance::readFile("/proc/" + std::to_string(pid) + "/status"));
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("VmRSS:"))
            return std::atol(line.c_str() + 6);
    }
    return -1;
}

std::ptrdiff_t descriptorsOf(pid_t pid) {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(pid) + "/fd");
    return std::distance(begin(all), end(all));
}

class ManyChanges : public testing::Test {
protected:
    // Adds a source and returns the number that the gateway gives it.
    int add(const std::string& name) {
        const appliance::Finished added = decoder_.ctl({"add", name, url_, "--unchecked", "--no-apply"});
        EXPECT_EQ(added.status, 0) << added.errors;
        std::string number;
        eventually([&] {
            const appliance::Finished got = decoder_.ctl({"get", "Encoder." + name + ".VideoSourceNumber"});
            number = got.status == 0 ? got.output : "";
            return !number.empty();
        });
        return std::atoi(number.c_str());
    }
    void remove(const std::string& name) {
        const appliance::Finished removed = decoder_.ctl({"remove", name, "--no-apply"});
        EXPECT_EQ(removed.status, 0) << removed.errors;
    }

    Appliance decoder_;
    std::string url_;
};

TEST_F(ManyChanges, NumbersAreNeverGivenTwiceAndNothingLeaks) {
    const Encoder camera("Camera", mark,
                         {"--kinds", "rtsp-tcp", "--codec", "h264", "--width", "352", "--height", "288"},
                         decoder_.root() + "/camera.log");
    url_ = "rtsp://" + camera.address() + "/mpeg4/1/media.orv";
    decoder_.setManual();
    decoder_.addSource("Stays", {{"URL", url_}});
    CameraGateway gateway(decoder_);
    decoder_.start();
    ASSERT_TRUE(decoder_.showsMoving(mark)) << gateway.log();
    const int player = decoder_.playerPid();
    const pid_t pid = gateway.process().pid();

    std::set<int> numbers{1};
    long memory = 0;
    std::ptrdiff_t descriptors = 0;
    const int all = rounds();
    for (int i = 0; i < all && !HasFailure(); ++i) {
        const std::string name = "New " + std::to_string(i % 3);
        const int number = add(name);
        EXPECT_TRUE(numbers.insert(number).second) << number;
        EXPECT_EQ(number, i + 2);
        remove(name);
        if (i == warmUp) {
            memory = memoryOf(pid);
            descriptors = descriptorsOf(pid);
        }
    }
    EXPECT_EQ(decoder_.ctl({"get", "Gateway.HighestNumber"}).output, std::to_string(all + 1) + "\n");
    EXPECT_EQ(decoder_.ctl({"sources", "--names"}).output, "Stays\n");
    const appliance::Finished checked = decoder_.ctl({"check"});
    EXPECT_EQ(checked.status, 0) << checked.output;
    EXPECT_LE(memoryOf(pid), memory + mostGrowth);
    EXPECT_LE(descriptorsOf(pid), descriptors + 2);
    EXPECT_TRUE(decoder_.showsMoving(mark));
    EXPECT_EQ(decoder_.playerPid(), player);
    std::printf("%d rounds: memory %ld to %ld KiB, descriptors %td to %td\n", all, memory, memoryOf(pid),
                descriptors, descriptorsOf(pid));
}

} // namespace
