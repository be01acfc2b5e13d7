#include "tests/support/x_server.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <unistd.h>

#include <X11/extensions/scrnsaver.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/Xrandr.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

namespace x_server {
namespace {

constexpr const char* serverProgram = "/usr/bin/Xvfb";
constexpr const char* keyProgram = "/usr/bin/xdotool";

struct FreeImage {
    void operator()(XImage* image) const { XDestroyImage(image); }
};
struct FreeResources {
    void operator()(XRRScreenResources* resources) const { XRRFreeScreenResources(resources); }
};

RRMode makeMode(Display* display, Window root, int width, int height) {
    std::string name = std::to_string(width) + 'x' + std::to_string(height);
    XRRModeInfo info{};
    info.width = static_cast<unsigned>(width);
    info.height = static_cast<unsigned>(height);
    info.name = name.data();
    info.nameLength = static_cast<unsigned>(name.size());
    return XRRCreateMode(display, root, &info);
}

} // namespace

bool Image::allBlack() const {
    for (const std::uint32_t pixel : pixels)
        if (pixel != 0)
            return false;
    return true;
}

struct XServer::Connection {
    Display* display = nullptr;
    ~Connection() {
        if (display != nullptr)
            XCloseDisplay(display);
    }
    Window root() const { return DefaultRootWindow(display); }
};

std::string XServer::whyNot() {
    for (const char* program : {serverProgram, keyProgram})
        if (access(program, X_OK) != 0)
            return std::string(program) + " is not installed";
    return "";
}

XServer::XServer(int width, int height, bool pixelFile)
    : width_(width), height_(height), pixelFile_(pixelFile) {
    char folder[] = "/tmp/x-server-XXXXXX";
    folder_ = mkdtemp(folder);
    start();
}

XServer::~XServer() {
    connection_.reset();
    if (process_ != nullptr) {
        process_->signal(SIGTERM); // so that it removes its files
        process_->waitForEnd(appliance::Seconds(5));
    }
    process_.reset();
    std::filesystem::remove_all(folder_);
}

// With a given number the server takes a lock file, which holds in all network namespaces. A number that it chooses
// itself is free in its own one only, and then two servers share one socket file.
bool XServer::startAs(const std::string& display) {
    const std::string output = folder_ + "/output";
    std::filesystem::remove(output);
    const std::string size = std::to_string(width_) + 'x' + std::to_string(height_) + "x24";
    std::vector<std::string> command{serverProgram, display,    "-displayfd", "1", "-nolisten",
                                     "tcp",         "-noreset", "-screen",    "0", size};
    if (pixelFile_)
        command.insert(command.end(), {"-fbdir", folder_});
    process_ = std::make_unique<appliance::Process>(command, std::map<std::string, std::string>{}, output);
    // It prints its number when it is ready.
    const std::string ready = display.substr(1) + '\n';
    appliance::eventually(
        [&] { return !process_->running() || appliance::readFile(output).find(ready) != std::string::npos; });
    return process_->running();
}

void XServer::start() {
    if (!display_.empty()) {
        if (!startAs(display_))
            throw std::runtime_error("Xvfb does not start: " + appliance::readFile(folder_ + "/output"));
        return;
    }
    constexpr int first = 100;
    constexpr int numbers = 30'000;
    for (int attempt = 0; attempt < 20; ++attempt) {
        const std::string display = ':' + std::to_string(first + (getpid() + 101 * attempt) % numbers);
        if (startAs(display)) {
            display_ = display;
            return;
        }
    }
    throw std::runtime_error("Xvfb does not start: " + appliance::readFile(folder_ + "/output"));
}

void XServer::kill() {
    connection_.reset();
    process_->signal(SIGKILL);
    process_->waitForEnd();
}

XServer::Connection& XServer::connection() {
    if (connection_ == nullptr) {
        auto opened = std::make_unique<Connection>();
        opened->display = XOpenDisplay(display_.c_str());
        if (opened->display == nullptr)
            throw std::runtime_error("the X server " + display_ + " can't be reached");
        connection_ = std::move(opened);
    }
    return *connection_;
}

bool XServer::resize(int width, int height) {
    Display* display = connection().display;
    const Window root = connection().root();
    const std::unique_ptr<XRRScreenResources, FreeResources> resources(XRRGetScreenResources(display, root));
    if (resources == nullptr || resources->ncrtc < 1 || resources->noutput < 1)
        return false;
    RRMode mode = None;
    for (int i = 0; i < resources->nmode; ++i)
        if (static_cast<int>(resources->modes[i].width) == width &&
            static_cast<int>(resources->modes[i].height) == height)
            mode = resources->modes[i].id;
    if (mode == None) {
        mode = makeMode(display, root, width, height);
        XRRAddOutputMode(display, resources->outputs[0], mode);
    }
    XRRSetCrtcConfig(display, resources.get(), resources->crtcs[0], CurrentTime, 0, 0, None, RR_Rotate_0,
                     nullptr, 0);
    XRRSetScreenSize(display, root, width, height, width / 4, height / 4);
    RROutput output = resources->outputs[0];
    const Status status = XRRSetCrtcConfig(display, resources.get(), resources->crtcs[0], CurrentTime, 0, 0,
                                           mode, RR_Rotate_0, &output, 1);
    XSync(display, False);
    return status == RRSetConfigSuccess;
}

Image XServer::screen() {
    XWindowAttributes attributes;
    XGetWindowAttributes(connection().display, connection().root(), &attributes);
    return part(0, 0, attributes.width, attributes.height);
}

Image XServer::part(int x, int y, int width, int height) {
    const std::unique_ptr<XImage, FreeImage> image(
        XGetImage(connection().display, connection().root(), x, y, static_cast<unsigned>(width),
                  static_cast<unsigned>(height), AllPlanes, ZPixmap));
    if (image == nullptr || image->bits_per_pixel != 32)
        throw std::runtime_error("the X server's screen can't be read");
    Image result{width, height, std::vector<std::uint32_t>(static_cast<std::size_t>(width) * height)};
    for (int row = 0; row < height; ++row) {
        const auto* from = reinterpret_cast<const std::uint32_t*>(image->data + row * image->bytes_per_line);
        for (int column = 0; column < width; ++column)
            result.pixels[static_cast<std::size_t>(row) * width + column] = from[column] & 0xffffffU;
    }
    return result;
}

void XServer::fill(int x, int y, int width, int height, std::uint32_t colour) {
    Display* display = connection().display;
    XGCValues values{};
    values.foreground = colour;
    values.subwindow_mode = IncludeInferiors;
    GC context = XCreateGC(display, connection().root(), GCForeground | GCSubwindowMode, &values);
    XFillRectangle(display, connection().root(), context, x, y, static_cast<unsigned>(width),
                   static_cast<unsigned>(height));
    XFreeGC(display, context);
    XSync(display, False);
}

bool XServer::pointerHidden() {
    Display* display = connection().display;
    XFixesCursorImage* cursor = XFixesGetCursorImage(display);
    if (cursor == nullptr)
        return false;
    bool visible = false;
    for (int i = 0; i < cursor->width * cursor->height; ++i)
        visible = visible || (cursor->pixels[i] >> 24 & 255U) != 0;
    XFree(cursor);
    return !visible;
}

bool XServer::fallsAsleep() {
    Display* display = connection().display;
    XSetScreenSaver(display, 1, 0, PreferBlanking, AllowExposures);
    XScreenSaverInfo* info = XScreenSaverAllocInfo();
    bool asleep = false;
    for (int i = 0; i < 30 && !asleep; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        XScreenSaverQueryInfo(display, connection().root(), info);
        asleep = info->state == ScreenSaverOn;
    }
    XFree(info);
    return asleep;
}

std::vector<std::string> XServer::windows() {
    Display* display = connection().display;
    Window root = None;
    Window parent = None;
    Window* children = nullptr;
    unsigned count = 0;
    std::vector<std::string> found;
    if (XQueryTree(display, connection().root(), &root, &parent, &children, &count) == 0)
        return found;
    for (unsigned i = 0; i < count; ++i) {
        XWindowAttributes attributes;
        char* name = nullptr;
        if (XGetWindowAttributes(display, children[i], &attributes) != 0 &&
            attributes.map_state == IsViewable && XFetchName(display, children[i], &name) != 0)
            found.push_back(std::string(name) + ' ' + std::to_string(attributes.width) + 'x' +
                            std::to_string(attributes.height));
        if (name != nullptr)
            XFree(name);
    }
    if (children != nullptr)
        XFree(children);
    return found;
}

void XServer::xdotool(const std::vector<std::string>& arguments) {
    std::vector<std::string> all{keyProgram};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const appliance::Finished finished = appliance::runToEnd(all, {{"DISPLAY", display_}});
    if (finished.status != 0)
        throw std::runtime_error("xdotool: " + finished.errors);
}

void XServer::key(const std::string& name) {
    xdotool({"key", name});
}

void XServer::movePointer(int x, int y) {
    xdotool({"mousemove", std::to_string(x), std::to_string(y)});
}

void XServer::keyDown(const std::string& name) {
    xdotool({"keydown", name});
}

void XServer::keyUp(const std::string& name) {
    xdotool({"keyup", name});
}

} // namespace x_server
