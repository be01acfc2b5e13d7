// A running decoder-monitor on an X server without a display, and a frame store to draw into.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/frame_store.h"
#include "appliance/screen/layout.h"
#include "tests/support/x_server.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

namespace screen {

class MonitorTest : public testing::Test {
protected:
    static constexpr Size wholeDisplay{640, 360};

    MonitorTest() {
        char folder[] = "/tmp/monitor-test-XXXXXX";
        root = mkdtemp(folder);
        store = std::make_unique<FrameStore>(root / "run/decoder/screen/frames");
    }
    ~MonitorTest() override {
        monitor.reset();
        server.reset();
        std::filesystem::remove_all(root);
    }

    void SetUp() override {
        if (const std::string reason = x_server::XServer::whyNot(); !reason.empty())
            GTEST_SKIP() << reason;
        server = std::make_unique<x_server::XServer>(wholeDisplay.width, wholeDisplay.height);
    }
    void TearDown() override {
        if (HasFailure())
            std::fprintf(stderr, "---- the monitor's output\n%s", output().c_str());
    }

    std::map<std::string, std::string> environment() const {
        return {{"DISPLAY", server->display()},
                {"WAYLAND_DISPLAY", ""},
                {"APPLIANCE_ROOT", root},
                {"LIBCOMMON_LOG", "stderr"}};
    }

    void start(std::vector<std::string> arguments = {"--fullscreen"}) {
        arguments.insert(arguments.begin(), MONITOR_PROGRAM);
        monitor = std::make_unique<appliance::Process>(arguments, environment(), root / "output");
    }

    std::string output() const { return appliance::readFile(root / "output"); }
    std::string information() const { return appliance::readFile(root / "run/decoder/info.conf"); }
    bool informs(const std::string& line) const {
        return appliance::eventually([&] { return information().find(line) != std::string::npos; });
    }

    // A picture of one colour with a mark.
    void draw(Size size, std::uint8_t source, std::uint16_t counter, std::uint32_t colour) const {
        Drawing drawing = store->draw(shapeOf(size));
        ASSERT_TRUE(drawing);
        for (int y = 0; y < size.height; ++y) {
            auto* row = reinterpret_cast<std::uint32_t*>(drawing.plane(0) +
                                                         drawing.stride(0) * static_cast<std::size_t>(y));
            std::fill(row, row + size.width, colour);
        }
        drawFrameMark(drawing.plane(0), size.width, size.height, static_cast<int>(drawing.stride(0)),
                      {source, counter});
        drawing.commit(source);
    }

    static PictureShape shapeOf(Size size) {
        PictureShape shape;
        shape.width = size.width;
        shape.height = size.height;
        return shape;
    }

    // The mark on the display.
    static std::optional<FrameMark> markOf(const x_server::Image& image) {
        return readFrameMark(reinterpret_cast<const std::uint8_t*>(image.pixels.data()), image.width,
                             image.height, 4 * image.width);
    }
    bool shows(std::uint8_t source, std::uint16_t counter) const {
        return appliance::eventually([&] { return markOf(server->screen()) == FrameMark{source, counter}; });
    }

    std::filesystem::path root;
    std::unique_ptr<FrameStore> store;
    std::unique_ptr<x_server::XServer> server;
    std::unique_ptr<appliance::Process> monitor;
};

} // namespace screen
