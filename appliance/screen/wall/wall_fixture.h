// A wall on an X server without a display, and decoders for its tiles.
#pragma once

#include "appliance/mark/frame_mark.h"
#include "appliance/screen/layout.h"
#include "tests/appliance/isolation.h"
#include "tests/support/x_server.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace screen {

class WallTest : public testing::Test {
protected:
    static constexpr Size display{960, 720};

    WallTest();
    ~WallTest() override;
    void SetUp() override;
    void TearDown() override;

    // Makes an appliance root for decoder N (from 0) and starts the decoder there. Its mark is 16 * N, its picture has
    // that colour; the number of its second source is 16 * N + 1.
    void startDecoder(std::size_t number, std::uint32_t colour, Size size = {720, 540},
                      const std::string& text = "");
    void startFourDecoders();
    appliance::Process& decoder(std::size_t number) { return *decoders.at(number); }
    std::string root(std::size_t number) const { return (folder / std::to_string(number)).string(); }

    // Starts the wall with all roots, full screen.
    void startWall(const std::string& layout, const std::vector<std::string>& options = {});
    std::string output() const { return appliance::readFile(folder / "output"); }

    void click(int x, int y) const;

    // The place of a tile in a grid of that many columns and rows.
    static Rectangle tile(int column, int row, int columns = 2, int rows = 2);
    static constexpr Rectangle whole{0, 0, display.width, display.height};

    // What that part of the display shows.
    std::optional<FrameMark> markIn(const Rectangle& at);
    std::uint32_t colourIn(const Rectangle& at, double x, double y); // shares of its width and height
    bool shows(const Rectangle& at, int mark);                       // within a while
    bool moves(const Rectangle& at);                                 // the counter grows
    bool isMarked(const Rectangle& at);                              // as a decoder that has stopped, now
    bool becomesMarked(const Rectangle& at, bool marked);

    // The pid of the tile process of that root; -1: there is none now.
    int tileProcess(std::size_t number) const;

    std::filesystem::path folder;
    std::unique_ptr<x_server::XServer> server;
    std::vector<std::unique_ptr<appliance::Process>> decoders;
    std::unique_ptr<appliance::Process> wall;
};

} // namespace screen
