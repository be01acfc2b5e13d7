#include "appliance/screen/monitor.h"

#include "appliance/screen/composition.h"

#include <libcommon/clock.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <memory>
#include <string>
#include <vector>

namespace screen {
namespace {

// Process-wide state of this file.
// Set by the handler of SIGINT and SIGTERM; read by the loop.
volatile std::sig_atomic_t stopAsked = 0;

// A change of the texts does not wake a waiter for frames, so the picture is composed again after this time.
constexpr int textIntervalMs = 200;

struct Unref {
    void operator()(void* object) const { gst_object_unref(object); }
};
template<class T>
using Owned = std::unique_ptr<T, Unref>;

bool isSet(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0';
}

// The sinks to try, best first. GStreamer's automatic choice is not used: it also tries sinks that end the
// program if their hardware is missing.
std::vector<std::string> sinksFor(const MonitorOptions& options) {
    if (!options.sink.empty())
        return {options.sink};
    std::vector<std::string> sinks;
    if (isSet("WAYLAND_DISPLAY"))
        sinks.emplace_back("waylandsink");
    if (isSet("DISPLAY"))
        sinks.insert(sinks.end(), {"xvimagesink", "glimagesink", "ximagesink"});
    return sinks;
}

GstCaps* capsOf(const ScreenShape& screen) {
    return gst_caps_new_simple("video/x-raw", "format", G_TYPE_STRING, "BGRx", "width", G_TYPE_INT,
                               screen.size.width, "height", G_TYPE_INT, screen.size.height, "framerate",
                               GST_TYPE_FRACTION, 25, 1, "pixel-aspect-ratio", GST_TYPE_FRACTION,
                               screen.aspectNumerator, screen.aspectDenominator, nullptr);
}

bool hasProperty(GstElement* element, const char* name) {
    return g_object_class_find_property(G_OBJECT_GET_CLASS(element), name) != nullptr;
}

class Window {
public:
    // Null with a `reason` when the window can't be opened.
    static std::unique_ptr<Window> open(const std::string& sinkName, bool fullscreen,
                                        const ScreenShape& screen, std::string& reason);
    ~Window() { gst_element_set_state(pipeline_.get(), GST_STATE_NULL); }
    Window(const Window&) = delete;
    Window& operator=(const Window&) = delete;

    void show(const Picture& picture);

    // False when the sink has ended; `reason` is empty when its window was closed.
    bool alive(std::string& reason);

private:
    Window() = default;
    bool build(const std::string& sinkName, std::string& reason);
    bool start(bool fullscreen, std::string& reason);

    Owned<GstElement> pipeline_;
    GstElement* source_ = nullptr;
    GstElement* sink_ = nullptr;
    ScreenShape screen_;
};

std::unique_ptr<Window> Window::open(const std::string& sinkName, bool fullscreen, const ScreenShape& screen,
                                     std::string& reason) {
    std::unique_ptr<Window> window(new Window);
    window->screen_ = screen;
    return window->build(sinkName, reason) && window->start(fullscreen, reason) ? std::move(window) : nullptr;
}

bool Window::build(const std::string& sinkName, std::string& reason) {
    pipeline_.reset(gst_pipeline_new("monitor"));
    std::vector<GstElement*> parts;
    for (const char* name : {"appsrc", "videoconvert", "videoscale", sinkName.c_str()}) {
        GstElement* part = gst_element_factory_make(name, nullptr);
        if (part == nullptr) {
            reason = "GStreamer has no element \"" + std::string(name) + "\" on this machine";
            return false;
        }
        gst_bin_add(GST_BIN(pipeline_.get()), part);
        parts.push_back(part);
    }
    source_ = parts.front();
    sink_ = parts.back();
    if (gst_element_link_many(parts[0], parts[1], parts[2], parts[3], nullptr) == TRUE)
        return true;
    reason = "\"" + sinkName + "\" is not a video sink";
    return false;
}

bool Window::start(bool fullscreen, std::string& reason) {
    GstCaps* caps = capsOf(screen_);
    g_object_set(source_, "caps", caps, "format", GST_FORMAT_TIME, "is-live", TRUE, "do-timestamp", TRUE,
                 "max-buffers", guint64{2}, "leaky-type", 2, nullptr);
    gst_caps_unref(caps);
    if (hasProperty(sink_, "sync"))
        g_object_set(sink_, "sync", FALSE, nullptr);
    if (fullscreen && hasProperty(sink_, "fullscreen"))
        g_object_set(sink_, "fullscreen", TRUE, nullptr);
    else if (fullscreen)
        std::fprintf(stderr, "decoder-monitor: %s has no full-screen mode; it shows a window\n",
                     G_OBJECT_TYPE_NAME(sink_));
    for (const GstState state : {GST_STATE_READY, GST_STATE_PLAYING})
        if (gst_element_set_state(pipeline_.get(), state) == GST_STATE_CHANGE_FAILURE) {
            if (alive(reason))
                reason = "the display can't be opened";
            return false;
        }
    return true;
}

void Window::show(const Picture& picture) {
    if (picture.screen != screen_) {
        screen_ = picture.screen;
        GstCaps* caps = capsOf(screen_);
        gst_app_src_set_caps(GST_APP_SRC(source_), caps);
        gst_caps_unref(caps);
    }
    const std::size_t bytes = picture.pixels.size() * sizeof picture.pixels[0];
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, bytes, nullptr);
    if (buffer == nullptr)
        return;
    gst_buffer_fill(buffer, 0, picture.pixels.data(), bytes);
    gst_app_src_push_buffer(GST_APP_SRC(source_), buffer);
}

bool Window::alive(std::string& reason) {
    const Owned<GstBus> bus(gst_element_get_bus(pipeline_.get()));
    GstMessage* message = gst_bus_pop_filtered(bus.get(), GST_MESSAGE_ERROR);
    if (message == nullptr)
        return true;
    GError* error = nullptr;
    gst_message_parse_error(message, &error, nullptr);
    // The X sinks report a closed window as an error; only its text differs from other errors.
    const bool closed = std::strstr(error->message, "window was closed") != nullptr;
    reason = closed ? "" : error->message;
    g_error_free(error);
    gst_message_unref(message);
    return false;
}

int failed(const std::string& reason) {
    std::fprintf(stderr, "decoder-monitor: %s\n", reason.c_str());
    return 1;
}

// Shows the composed pictures until something ends it. Returns the program's exit status.
int showScreen(Window& window, Composer& composer, const std::optional<int>& seconds) {
    const std::int64_t end = gettimeusec() + seconds.value_or(0) * std::int64_t{1'000'000};
    std::string reason;
    while (stopAsked == 0 && (!seconds || gettimeusec() < end)) {
        if (!window.alive(reason))
            return reason.empty() ? 0 : failed(reason);
        const Picture& picture = composer.compose();
        const std::uint64_t shown = picture.info.number;
        window.show(picture);
        composer.wait(shown, textIntervalMs);
    }
    return 0;
}

} // namespace

int runMonitor(const MonitorOptions& options) {
    const std::vector<std::string> sinks = sinksFor(options);
    if (sinks.empty())
        return failed(
            "there is no display here: neither DISPLAY nor WAYLAND_DISPLAY is set.\n"
            "On a console without a desktop try --sink kmssink; `decoderctl snapshot FILE.png` needs no "
            "display.");
    std::signal(SIGINT, [](int) { stopAsked = 1; });
    std::signal(SIGTERM, [](int) { stopAsked = 1; });
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error) == FALSE) {
        const std::string reason = error->message;
        g_error_free(error);
        return failed("GStreamer does not start: " + reason);
    }
    Composer composer;
    const ScreenShape screen = composer.compose().screen;
    std::string reasons;
    for (const std::string& sink : sinks) {
        std::string reason;
        if (const auto window = Window::open(sink, options.fullscreen, screen, reason))
            return showScreen(*window, composer, options.seconds);
        reasons += (reasons.empty() ? "" : "; ") + reason;
    }
    return failed("the picture can't be shown: " + reasons);
}

} // namespace screen
