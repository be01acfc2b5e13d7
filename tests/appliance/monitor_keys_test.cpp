// The keys of decoder-monitor, typed into its window, with a running decoder.
#include "tests/appliance/appliance.h"
#include "tests/support/x_server.h"

#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using x_server::XServer;

const std::vector<std::string> small{"--width", "352", "--height", "288"};

class MonitorKeys : public testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = XServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
        // The server shares memory with the monitor only if it starts in the appliance's namespaces, too.
        decoder = std::make_unique<Appliance>();
        server = std::make_unique<XServer>(768, 576);
        for (const char* name : {"Front door", "Garage", "Yard"})
            decoder->addEncoder(name, small);
        decoder->setManual();
        decoder->start();
        monitor = std::make_unique<appliance::Process>(
            std::vector<std::string>{Appliance::program("decoder-monitor"), "--fullscreen"},
            std::map<std::string, std::string>{{"DISPLAY", server->display()},
                                               {"WAYLAND_DISPLAY", ""},
                                               {"APPLIANCE_ROOT", decoder->root()},
                                               {"LIBCOMMON_LOG", output()}},
            output());
        ASSERT_TRUE(displays(0));
    }
    void TearDown() override {
        if (HasFailure() && decoder != nullptr)
            std::fprintf(stderr, "---- the monitor's output\n%s", appliance::readFile(output()).c_str());
        if (monitor != nullptr) {
            monitor->signal(SIGTERM);
            monitor->waitForEnd();
        }
        monitor.reset();
        decoder.reset();
        server.reset();
    }

    std::string output() const { return decoder->root() + "/var/log/monitor.log"; }

    // The source whose mark is on the display.
    bool displays(int source) const {
        return appliance::eventually([&] {
            const x_server::Image image = server->screen();
            const auto mark = readFrameMark(reinterpret_cast<const std::uint8_t*>(image.pixels.data()),
                                            image.width, image.height, 4 * image.width);
            return mark && mark->source == source;
        });
    }

    std::unique_ptr<XServer> server;
    std::unique_ptr<Appliance> decoder;
    std::unique_ptr<appliance::Process> monitor;
};

TEST_F(MonitorKeys, SelectSources) {
    server->key("2");
    EXPECT_TRUE(displays(2));
    server->key("Right");
    EXPECT_TRUE(displays(0)) << "after the last one comes the first one";
    server->key("Left");
    EXPECT_TRUE(displays(2));
    server->key("7");
    EXPECT_TRUE(appliance::eventually(
        [&] { return appliance::readFile(output()).find("there is no source 7") != std::string::npos; }));
}

TEST_F(MonitorKeys, SpaceIsTheButton) {
    server->key("space");
    EXPECT_TRUE(displays(1)) << "a press shows the next source";
    server->keyDown("space");
    EXPECT_TRUE(decoder->waitForState("DISCONNECTED")) << "a hold disconnects";
    server->keyUp("space");
    EXPECT_TRUE(decoder->waitForText(0, "Disconnected"));
    server->key("space");
    EXPECT_TRUE(displays(0)) << "a press connects";
}

TEST_F(MonitorKeys, MutesTheSound) {
    const auto muted = [&] {
        return appliance::readFile(decoder->root() + "/run/decoder/info.conf").find("Muted = yes") !=
               std::string::npos;
    };
    server->key("m");
    EXPECT_TRUE(appliance::eventually(muted));
    server->key("m");
    EXPECT_TRUE(appliance::eventually([&] { return !muted(); }));
}

} // namespace
