// Our ONVIF side with independent programs: Debian's onvif-util, and the npm package "onvif". The latter is used if it is
// installed in build/peers, which this command does in the top folder:
//     npm install --prefix build/peers onvif@0.8.1
#include "tests/appliance/test_network.h"
#include "tests/support/programs.h"

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace {

using appliance::Finished;
using appliance::Process;
using testing::HasSubstr;

using Words = std::vector<std::string>;

constexpr const char* modules = HOUSE_ROOT "/build/peers/node_modules";
constexpr const char* camera = "10.77.0.11";
constexpr const char* stream = "rtsp://10.77.0.11:80/mpeg4/1/media.orv";

class OnvifPeers : public testing::Test {
protected:
    void SetUp() override {
        if (!network.problem().empty()) {
            GTEST_SKIP() << network.problem();
        }
        char name[] = "/tmp/onvif_peers.XXXXXX";
        root = mkdtemp(name);
        std::filesystem::create_directories(root + "/run/decoder");
        network.addBridge("lan", "10.77.0.1/24");
        network.addDefaultRoute("lan");
        host = network.addHost("lan", std::string(camera) + "/24");
    }
    void TearDown() override {
        server.reset();
        if (!root.empty()) {
            std::filesystem::remove_all(root);
        }
    }

    // Runs a program on the other host; it is ready when it has printed `ready`.
    void serve(const Words& command, const std::string& ready) {
        server.reset(); // the one before has the port
        const std::string output = root + "/server" + std::to_string(++servers);
        server = std::make_unique<Process>(network.on(host, command), std::map<std::string, std::string>{},
                                           output);
        ASSERT_TRUE(appliance::eventually([&] {
            return appliance::readFile(output).find(ready) != std::string::npos;
        })) << appliance::readFile(output);
    }

    void serveEncoder(const Words& options) {
        Words command{HOUSE_PROGRAMS "/video-encoder",
                      "--onvif",
                      "--http",
                      "80",
                      "--address",
                      camera,
                      "--width",
                      "64",
                      "--height",
                      "48",
                      "--fps",
                      "5",
                      "--name",
                      "Yard",
                      "--kinds",
                      "rtsp-unicast"};
        command.insert(command.end(), options.begin(), options.end());
        serve(command, "http=");
    }

    // Both ways in which the encoder asks for the password.
    static std::vector<Words> waysToAsk() {
        return {{"--user", "viewer", "--password", "s3cret"},
                {"--user", "viewer", "--password", "s3cret", "--digest"}};
    }

    static std::string node() {
        return std::filesystem::exists(std::string(modules) + "/onvif") ? findProgram("node") : "";
    }

    Finished askWithNode(const std::string& password) const {
        return appliance::runToEnd(
            {node(), HOUSE_ROOT "/tests/peers/onvif_client.js", modules, camera, "80", "viewer", password},
            {});
    }

    appliance::TestNetwork network;
    std::size_t host = 0;
    int servers = 0;
    std::string root;
    std::unique_ptr<Process> server;
};

TEST_F(OnvifPeers, OnvifUtilFindsOurEncoderAndItsStream) {
    const std::string util = findProgram("onvif-util");
    if (util.empty()) {
        GTEST_SKIP() << "onvif-util is not installed (package onvif-tools)";
    }
    for (const Words& way : waysToAsk()) {
        serveEncoder(way);
        // It listens only for half a second.
        std::string found;
        EXPECT_TRUE(appliance::eventually([&] {
            found = appliance::runToEnd({util, "-a"}, {}).output;
            return found.find("10.77.0.11 Yard") != std::string::npos;
        })) << found;
        const Finished asked = appliance::runToEnd(
            {"/bin/sh", "-c", "printf 'get rtsp\\nquit\\n' | \"$0\" -u viewer -p s3cret 10.77.0.11", util},
            {});
        EXPECT_THAT(asked.output, HasSubstr(stream));
    }
}

TEST_F(OnvifPeers, NodeClientFindsOurEncoderAndItsStream) {
    if (node().empty()) {
        GTEST_SKIP() << "the package is not installed: npm install --prefix build/peers onvif@0.8.1";
    }
    for (const Words& way : waysToAsk()) {
        serveEncoder(way);
        const Finished asked = askWithNode("s3cret");
        EXPECT_THAT(asked.output, HasSubstr("found http://10.77.0.11:80/onvif/device_service"));
        EXPECT_THAT(asked.output, HasSubstr(std::string("stream ") + stream));
        EXPECT_THAT(askWithNode("guess").output, HasSubstr("refused "));
    }
}

TEST_F(OnvifPeers, WeFindADeviceThatAnswersAsRealOnesDo) {
    if (node().empty() || !std::filesystem::exists(std::string(modules) + "/onvif/test/serverMockup")) {
        GTEST_SKIP() << "the package is not installed: npm install --prefix build/peers onvif@0.8.1";
    }
    serve({node(), HOUSE_ROOT "/tests/peers/onvif_answers.js", modules, camera, "80"}, "listens");
    const Finished finished =
        appliance::runToEnd({HOUSE_PROGRAMS "/decoderctl", "discover", "--json"}, {{"APPLIANCE_ROOT", root}});
    const auto result = nlohmann::json::parse(finished.output, nullptr, false);
    ASSERT_EQ(result["cameras"].size(), 1U) << finished.output << finished.errors;
    const auto& found = result["cameras"][0];
    // The address of the recorded stream is that of the real device, which is in another network.
    EXPECT_EQ(found["state"], "no streams") << found["text"];
    EXPECT_NE(found["model"], "");
    ASSERT_FALSE(found["streams"].empty());
    EXPECT_EQ(found["streams"][0]["codec"], "H.264");
    EXPECT_GT(found["streams"][0]["width"], 0);
    EXPECT_THAT(std::string(found["streams"][0]["problem"]), HasSubstr("its address is in another network"));
}

} // namespace
