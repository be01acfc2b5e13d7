#include "appliance/screen/wall/wall_fixture.h"

#include <cstdio>

namespace screen {

namespace fs = std::filesystem;
using appliance::eventually;

WallTest::WallTest() {
    char name[] = "/tmp/wall-test-XXXXXX";
    folder = mkdtemp(name);
}

WallTest::~WallTest() {
    wall.reset();
    server.reset();
    decoders.clear();
    fs::remove_all(folder);
}

void WallTest::SetUp() {
    if (const std::string reason = x_server::XServer::whyNot(); !reason.empty())
        GTEST_SKIP() << reason;
    // Before the X server starts: its processes and this one see the same queues, and no other test sees them.
    appliance::isolate();
    server = std::make_unique<x_server::XServer>(display.width, display.height);
}

void WallTest::TearDown() {
    if (HasFailure())
        std::fprintf(stderr, "---- the wall's output\n%s", output().c_str());
    if (wall && wall->running()) {
        wall->signal(SIGTERM);
        EXPECT_TRUE(wall->waitForEnd());
    }
    decoders.clear();
    if (appliance::isolate())
        appliance::removeQueues();
}

void WallTest::startDecoder(std::size_t number, std::uint32_t colour, Size size, const std::string& text) {
    const fs::path own = root(number);
    fs::create_directories(own / "etc/decoder");
    fs::create_directories(own / "run/decoder");
    appliance::writeFile(own / "etc/decoder/decoder.conf",
                         "[Decoder]\nSequenceMode = manual\n"
                         "[Encoder.First]\nAddress = 127.0.0.1\nManualEnabled = yes\n"
                         "[Encoder.Second]\nAddress = 127.0.0.2\nManualEnabled = yes\n");
    char hexadecimal[16];
    std::snprintf(hexadecimal, sizeof hexadecimal, "%06x", colour);
    std::vector<std::string> command{WALL_DECODER, std::to_string(16 * number), hexadecimal,
                                     std::to_string(size.width), std::to_string(size.height)};
    if (!text.empty())
        command.push_back(text);
    decoders.resize(std::max(decoders.size(), number + 1));
    decoders[number] = std::make_unique<appliance::Process>(
        command, std::map<std::string, std::string>{{"APPLIANCE_ROOT", own}, {"LIBCOMMON_LOG", own / "log"}},
        own / "output");
}

void WallTest::startFourDecoders() {
    const std::uint32_t colours[] = {0x204080, 0x206020, 0x705010, 0x602060};
    for (std::size_t i = 0; i < 4; ++i)
        startDecoder(i, colours[i]);
}

void WallTest::startWall(const std::string& layout, const std::vector<std::string>& options) {
    std::vector<std::string> command{MONITOR_PROGRAM, "--fullscreen", "--wall", layout};
    for (std::size_t i = 0; i < decoders.size(); ++i)
        command.push_back(root(i));
    command.insert(command.end(), options.begin(), options.end());
    wall = std::make_unique<appliance::Process>(
        command,
        std::map<std::string, std::string>{
            {"DISPLAY", server->display()}, {"WAYLAND_DISPLAY", ""}, {"LIBCOMMON_LOG", "stderr"}},
        folder / "output");
}

void WallTest::click(int x, int y) const {
    const appliance::Finished done = appliance::runToEnd(
        {"/usr/bin/xdotool", "mousemove", std::to_string(x), std::to_string(y), "click", "1"},
        {{"DISPLAY", server->display()}});
    EXPECT_EQ(done.status, 0) << done.errors;
}

Rectangle WallTest::tile(int column, int row, int columns, int rows) {
    const int width = display.width / columns;
    const int height = display.height / rows;
    return {column * width, row * height, width, height};
}

std::optional<FrameMark> WallTest::markIn(const Rectangle& at) {
    const x_server::Image image = server->part(at.x, at.y, at.width, at.height);
    return readFrameMark(reinterpret_cast<const std::uint8_t*>(image.pixels.data()), image.width,
                         image.height, 4 * image.width);
}

std::uint32_t WallTest::colourIn(const Rectangle& at, double x, double y) {
    return server->part(at.x + static_cast<int>(x * at.width), at.y + static_cast<int>(y * at.height), 1, 1)
        .at(0, 0);
}

bool WallTest::shows(const Rectangle& at, int mark) {
    return eventually([&] {
        const auto seen = markIn(at);
        return seen && seen->source == mark;
    });
}

bool WallTest::moves(const Rectangle& at) {
    std::optional<FrameMark> first;
    return eventually([&] {
        const auto now = markIn(at);
        if (!first)
            first = now;
        return first && now && now->counter != first->counter;
    });
}

bool WallTest::isMarked(const Rectangle& at) {
    return colourIn(at, 0.5, 0) == 0xd03030;
}

bool WallTest::becomesMarked(const Rectangle& at, bool marked) {
    return eventually([&] { return isMarked(at) == marked; });
}

int WallTest::tileProcess(std::size_t number) const {
    for (const std::string& process : appliance::processesUnder(root(number)))
        if (process.find("decoder-tile") != std::string::npos)
            return std::stoi(process);
    return -1;
}

} // namespace screen
