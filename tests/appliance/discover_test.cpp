// `decoderctl discover` with cameras on other hosts.
#include "tests/appliance/fake_cameras.h"
#include "tests/appliance/process.h"
#include "tests/appliance/test_network.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <sys/stat.h>

namespace {

using appliance::Finished;
using appliance::Process;
using appliance::TestNetwork;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

using Words = std::vector<std::string>;

class Discover : public testing::Test {
protected:
    void SetUp() override {
        if (!network.problem().empty()) {
            GTEST_SKIP() << network.problem();
        }
        char name[] = "/tmp/discover.XXXXXX";
        root = mkdtemp(name);
        std::filesystem::create_directories(root + "/run/decoder");
        network.addBridge("lan", "10.77.0.1/24");
    }
    void TearDown() override {
        encoders.clear();
        if (!root.empty()) {
            std::filesystem::remove_all(root);
        }
    }

    // A host with an encoder that is an ONVIF device, at http://ADDRESS.
    void addCamera(const std::string& bridge, const std::string& address, const Words& options) {
        const std::size_t host = network.addHost(bridge, address + "/24");
        Words command{HOUSE_PROGRAMS "/video-encoder",
                      "--onvif",
                      "--http",
                      "80",
                      "--address",
                      address,
                      "--width",
                      "64",
                      "--height",
                      "48",
                      "--fps",
                      "5"};
        command.insert(command.end(), options.begin(), options.end());
        start(network.on(host, command));
    }

    void start(const Words& command) {
        const std::string output = root + "/encoder" + std::to_string(encoders.size());
        encoders.push_back(std::make_unique<Process>(command, std::map<std::string, std::string>{}, output));
        ASSERT_TRUE(appliance::eventually([&] {
            return appliance::readFile(output).find("http=") != std::string::npos;
        })) << appliance::readFile(output);
    }

    Finished discover(Words arguments, const std::string& password = "") {
        arguments.insert(arguments.begin(), {HOUSE_PROGRAMS "/decoderctl", "discover"});
        if (!password.empty()) {
            appliance::writeFile(root + "/input", password + "\n");
            arguments.insert(arguments.begin(),
                             {"/bin/sh", "-c", "exec \"$0\" \"$@\" <\"$APPLIANCE_ROOT/input\""});
        }
        const auto begin = std::chrono::steady_clock::now();
        Finished finished =
            appliance::runToEnd(arguments, {{"APPLIANCE_ROOT", root}}, appliance::Seconds(120));
        took = std::chrono::steady_clock::now() - begin;
        return finished;
    }

    json discovered(Words arguments, const std::string& password = "") {
        arguments.emplace_back("--json");
        const Finished finished = discover(std::move(arguments), password);
        EXPECT_EQ(finished.status, 0) << finished.errors;
        return json::parse(finished.output, nullptr, false);
    }

    // The state of the camera at an address; "none" if it was not found.
    static std::string stateOf(const json& result, const std::string& address, const char* key = "state") {
        for (const json& camera : result.at("cameras")) {
            if (camera.at("address") == address) {
                return camera.at(key);
            }
        }
        return "none";
    }

    TestNetwork network;
    std::string root;
    std::vector<std::unique_ptr<Process>> encoders;
    appliance::Seconds took{};
};

TEST_F(Discover, FindsCamerasAndTheirStreams) {
    addCamera("lan", "10.77.0.11",
              {"--name", "Loading dock", "--kinds", "mjpeg,rtsp-unicast", "--codec", "h264", "--inputs", "2",
               "--bitrate", "500"});
    addCamera("lan", "10.77.0.12", {"--name", "Yard"});
    const Finished table = discover({});
    EXPECT_EQ(table.status, 0) << table.errors;
    EXPECT_EQ(
        table.output,
        "1  Loading dock  10.77.0.11:80  ready\n"
        "      Input 1 H264  H.264  64x48  5/s  rtsp://10.77.0.11:80/mpeg4/1/media.orv\n"
        "      Input 1 JPEG  JPEG   64x48  5/s  http://10.77.0.11:80/vexo-cgi/mjpg/video.cgi?camera=1\n"
        "      Input 2 H264  H.264  64x48  5/s  rtsp://10.77.0.11:80/mpeg4/2/media.orv\n"
        "      Input 2 JPEG  JPEG   64x48  5/s  http://10.77.0.11:80/vexo-cgi/mjpg/video.cgi?camera=2\n"
        "2  Yard          10.77.0.12:80  ready\n"
        "      Input 1 JPEG  JPEG   64x48  5/s  http://10.77.0.12:80/vexo-cgi/mjpg/video.cgi?camera=1\n");
    const json result = discovered({});
    EXPECT_EQ(result["cameras"][0]["streams"][0]["bitrate"], 500);
    EXPECT_EQ(result["cameras"][0]["model"], "Network Video Encoder");
    EXPECT_EQ(result["notes"], json::array());
}

TEST_F(Discover, CamerasThatNeedAPasswordAreListed) {
    const Words user{"--user", "viewer", "--password", "s3cret"};
    addCamera("lan", "10.77.0.11", user);
    addCamera("lan", "10.77.0.12", {"--user", "viewer", "--password", "s3cret", "--digest"});
    addCamera("lan", "10.77.0.13", {"--user", "viewer", "--password", "s3cret", "--fault", "clock=100000"});
    const json without = discovered({});
    const json wrong = discovered({"--user", "viewer", "--password-stdin"}, "guess");
    const json right = discovered({"--user", "viewer", "--password-stdin"}, "s3cret");
    for (const char* address : {"10.77.0.11:80", "10.77.0.12:80", "10.77.0.13:80"}) {
        EXPECT_EQ(stateOf(without, address, "text"), "needs a user name and a password") << address;
        EXPECT_EQ(stateOf(wrong, address, "text"), "refuses the user name or password") << address;
        EXPECT_EQ(stateOf(right, address), "ready") << address;
    }
    EXPECT_EQ(without["cameras"][0]["streams"], json::array());
    EXPECT_EQ(right["cameras"][0]["streams"].size(), 1U);
}

TEST_F(Discover, ResultIsKeptWithoutThePassword) {
    addCamera("lan", "10.77.0.11", {"--user", "viewer", "--password", "s3cret"});
    discovered({"--user", "viewer", "--password-stdin"}, "s3cret");
    const std::string file = root + "/run/decoder/discovery.json";
    const std::string kept = appliance::readFile(file);
    EXPECT_THAT(kept, HasSubstr("http://10.77.0.11:80/vexo-cgi/mjpg/video.cgi"));
    EXPECT_THAT(kept, Not(HasSubstr("s3cret")));
    struct stat info {};
    ASSERT_EQ(stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600U);
}

TEST_F(Discover, CameraIsAddedByItsNumber) {
    addCamera("lan", "10.77.0.11", {"--name", "Loading dock", "--kinds", "mjpeg,rtsp-tcp"});
    std::filesystem::create_directories(root + "/etc/decoder");
    appliance::writeFile(root + "/etc/decoder/decoder.conf", "[Decoder]\nSequenceMode = auto\n");
    const auto add = [&](Words arguments) {
        arguments.insert(arguments.begin(), {HOUSE_PROGRAMS "/decoderctl", "add", "--unchecked"});
        return appliance::runToEnd(arguments, {{"APPLIANCE_ROOT", root}});
    };
    EXPECT_THAT(add({"--from-discovery", "1"}).errors, HasSubstr("run decoderctl discover first"));
    discovered({});
    EXPECT_EQ(add({"--from-discovery", "1"}).status, 0);
    EXPECT_EQ(add({"--from-discovery", "1", "Second", "--profile", "Input 1 JPEG"}).status, 0);
    EXPECT_THAT(add({"--from-discovery", "2"}).errors, HasSubstr("none has the number 2"));
    const std::string written = appliance::readFile(root + "/etc/decoder/decoder.conf");
    EXPECT_THAT(written, HasSubstr("[Encoder.Loading dock]\nURL = rtsp://10.77.0.11:80/mpeg4/1/media.orv\n"));
    EXPECT_THAT(written,
                HasSubstr("[Encoder.Second]\nURL = http://10.77.0.11:80/vexo-cgi/mjpg/video.cgi?camera=1\n"));
}

TEST_F(Discover, EveryInterfaceIsSearchedOrOne) {
    network.addBridge("other", "10.78.0.1/24");
    addCamera("lan", "10.77.0.11", {});
    addCamera("other", "10.78.0.11", {});
    const json both = discovered({});
    EXPECT_EQ(stateOf(both, "10.77.0.11:80"), "ready");
    EXPECT_EQ(stateOf(both, "10.78.0.11:80"), "ready");
    const json one = discovered({"--interface", "other"});
    EXPECT_EQ(one["cameras"].size(), 1U);
    EXPECT_EQ(stateOf(one, "10.78.0.11:80"), "ready");
    const Finished none = discover({"--interface", "nowhere"});
    EXPECT_EQ(none.status, 1);
    EXPECT_THAT(none.errors, HasSubstr("there is no interface \"nowhere\" with an IPv4 address"));
}

TEST_F(Discover, CameraIsAskedByItsAddress) {
    addCamera("lan", "10.77.0.11", {});
    const json found = discovered({"10.77.0.11:80"});
    EXPECT_EQ(stateOf(found, "10.77.0.11:80"), "ready");
    EXPECT_EQ(stateOf(discovered({"10.77.0.11:81"}), "10.77.0.11:81"), "no answer");
    EXPECT_EQ(discover({"viewer@10.77.0.11"}).status, 1);
}

TEST_F(Discover, NothingFoundIsSaid) {
    const Finished finished = discover({"--timeout", "1"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.output, "no camera has answered\n");
    EXPECT_LT(took.count(), 20);
}

// Each camera misbehaves in another way; the good one is found all the same.
TEST_F(Discover, CamerasThatMisbehaveCostAMessageAndLittleTime) {
    const std::map<std::string, std::string> expected{{"garbage", "not understood"},
                                                      {"huge", "not understood"},
                                                      {"endless-headers", "not understood"},
                                                      {"slow=2000", "no answer"},
                                                      {"silent", "no answer"},
                                                      {"404", "not understood"},
                                                      {"soap-garbage", "not understood"},
                                                      {"soap-bomb", "not understood"},
                                                      {"foreign-address", "another network"},
                                                      {"401", "needs password"}};
    addCamera("lan", "10.77.0.11", {"--name", "Good"});
    std::map<std::string, std::string> faultOf;
    int number = 20;
    for (const auto& [fault, state] : expected) {
        const std::string address = "10.77.0." + std::to_string(number++);
        faultOf[fault] = address;
        addCamera("lan", address, {"--fault", fault});
    }
    addCamera("lan", "10.77.0.60", {"--fault", "probe-garbage"});
    const json result = discovered({"--timeout", "12"});
    EXPECT_LT(took.count(), 40);
    EXPECT_EQ(stateOf(result, "10.77.0.11:80"), "ready");
    for (const auto& [fault, address] : faultOf) {
        const std::string shown = fault == "foreign-address" ? address : address + ":80";
        EXPECT_EQ(stateOf(result, shown), expected.at(fault))
            << fault << ": " << stateOf(result, shown, "text");
    }
    EXPECT_EQ(stateOf(result, faultOf["foreign-address"], "text"),
              "it names an address in another network: 203.0.113.9:80");
    ASSERT_EQ(result["notes"].size(), 1U);
    EXPECT_THAT(std::string(result["notes"][0]), HasSubstr("answers were not understood"));
}

TEST_F(Discover, FiveHundredCamerasAreListedAndMoreAreTold) {
    network.addOwnAddresses("10.80.0.0/16");
    start({HOUSE_PROGRAMS "/video-encoder", "--onvif", "--http", "80", "--address", "0.0.0.0", "--fault",
           "silent-search", "--max-connections", "100"});
    const FakeCameras cameras(600);
    const json result = discovered({"--timeout", "60"});
    EXPECT_EQ(result["cameras"].size(), 500U);
    EXPECT_LT(took.count(), 100);
    std::size_t ready = 0;
    for (const json& camera : result["cameras"]) {
        ready += camera["state"] == "ready" ? 1U : 0U;
    }
    EXPECT_GE(ready, 400U) << "on a busy machine some answer too late";
    ASSERT_EQ(result["notes"].size(), 1U);
    EXPECT_THAT(std::string(result["notes"][0]), HasSubstr("there are more devices than are taken (500"));
    EXPECT_EQ(result["cameras"][499]["number"], 500);
}

TEST_F(Discover, FloodOfGarbageHidesNoCamera) {
    addCamera("lan", "10.77.0.11", {"--name", "Good"});
    const FakeCameras flood(FakeCameras::Flood{2000});
    const json result = discovered({"--timeout", "12"});
    EXPECT_LT(took.count(), 40);
    EXPECT_EQ(stateOf(result, "10.77.0.11:80"), "ready");
    ASSERT_EQ(result["notes"].size(), 1U);
    EXPECT_THAT(std::string(result["notes"][0]), HasSubstr("answers were not understood"));
}

} // namespace
