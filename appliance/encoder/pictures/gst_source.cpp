#include "appliance/encoder/pictures/gst_source.h"

#include "appliance/encoder/base/gstreamer.h"
#include "appliance/encoder/base/log.h"
#include "appliance/mark/frame_mark.h"

#include <algorithm>
#include <filesystem>
#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>
#include <utility>

namespace {

constexpr std::chrono::seconds restartPause(2);
constexpr GstClockTime busPoll = 100 * GST_MSECOND;
// The latency of an RTSP camera's jitter buffer. The default of two seconds is too long for live video.
constexpr unsigned cameraLatencyMs = 100;

bool isUrl(const std::string& text) {
    return text.find("://") != std::string::npos;
}
bool isDevice(const std::string& text) {
    return text.starts_with("/dev/");
}

// The two television sizes have pixels that are not square.
const char* pixelShape(int width, int height) {
    if (width == 720 && height == 576)
        return "16/15";
    return width == 720 && height == 480 ? "8/9" : "1/1";
}

std::string description(const GstInput& input) {
    const std::string start = isDevice(input.text) ? "v4l2src name=in ! decodebin" : "uridecodebin name=in";
    const bool live = isDevice(input.text) || isUrl(input.text);
    return start +
           " ! videoconvert ! videoscale ! video/x-raw,format=BGRx,width=" + std::to_string(input.width) +
           ",height=" + std::to_string(input.height) +
           ",pixel-aspect-ratio=" + pixelShape(input.width, input.height) +
           " ! appsink name=out max-buffers=2 drop=true sync=" + (live ? "false" : "true");
}

// The input as the log shows it: a URL without its user name and password.
std::string shown(const std::string& input) {
    const std::size_t start = input.find("://");
    if (start == std::string::npos)
        return input;
    const std::size_t at = input.substr(0, input.find_first_of("/?", start + 3)).rfind('@');
    return at == std::string::npos ? input : input.substr(0, start + 3) + input.substr(at + 1);
}

void setLatency(GstElement* /*decoder*/, GstElement* source, gpointer /*unused*/) {
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "latency") != nullptr)
        g_object_set(source, "latency", cameraLatencyMs, nullptr);
}

// Without this the decoder expects several streams in a camera's multipart reply, and waits until its queues are full.
void setSingleStream(GstBin* /*pipeline*/, GstBin* /*parent*/, GstElement* element, gpointer /*unused*/) {
    const GstElementFactory* factory = gst_element_get_factory(element);
    if (factory != nullptr && std::string_view(GST_OBJECT_NAME(factory)) == "multipartdemux")
        g_object_set(element, "single-stream", TRUE, nullptr);
}

} // namespace

// One run of the pipeline, from its start to its end.
struct GstSource::Pipeline {
    GstElement* pipeline = nullptr;
    GstSource& owner;

    explicit Pipeline(GstSource& source) : owner(source) {}
    ~Pipeline() {
        if (pipeline == nullptr)
            return;
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    bool start();
    bool rewind() const;
    static GstFlowReturn takeSample(GstAppSink* sink, gpointer self);
};

bool GstSource::Pipeline::start() {
    GError* error = nullptr;
    pipeline = gst_parse_launch(description(owner.input_).c_str(), &error);
    if (error != nullptr) {
        logLine(std::string("input: ") + error->message);
        g_error_free(error);
        return false;
    }
    GstElement* in = gst_bin_get_by_name(GST_BIN(pipeline), "in");
    if (isDevice(owner.input_.text)) {
        g_object_set(in, "device", owner.input_.text.c_str(), nullptr);
    } else {
        gchar* uri = isUrl(owner.input_.text) ? g_strdup(owner.input_.text.c_str())
                                              : gst_filename_to_uri(owner.input_.text.c_str(), nullptr);
        g_object_set(in, "uri", uri, nullptr);
        g_free(uri);
        g_signal_connect(in, "source-setup", G_CALLBACK(setLatency), nullptr);
    }
    gst_object_unref(in);
    g_signal_connect(pipeline, "deep-element-added", G_CALLBACK(setSingleStream), nullptr);
    GstElement* out = gst_bin_get_by_name(GST_BIN(pipeline), "out");
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = takeSample;
    gst_app_sink_set_callbacks(GST_APP_SINK(out), &callbacks, &owner, nullptr);
    gst_object_unref(out);
    return gst_element_set_state(pipeline, GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE;
}

bool GstSource::Pipeline::rewind() const {
    return gst_element_seek_simple(pipeline, GST_FORMAT_TIME,
                                   static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT),
                                   0) != FALSE;
}

GstFlowReturn GstSource::Pipeline::takeSample(GstAppSink* sink, gpointer self) {
    GstSource& source = *static_cast<GstSource*>(self);
    GstSample* sample = gst_app_sink_pull_sample(sink);
    if (sample == nullptr)
        return GST_FLOW_EOS;
    if (!source.isTimeForAPicture()) {
        gst_sample_unref(sample);
        return GST_FLOW_OK;
    }
    GstVideoInfo info;
    GstVideoFrame frame;
    if (gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) != FALSE &&
        gst_video_frame_map(&frame, &info, gst_sample_get_buffer(sample), GST_MAP_READ) != FALSE) {
        auto picture = std::make_shared<Picture>();
        picture->resize(info.width, info.height);
        for (int y = 0; y < info.height; ++y) {
            const auto* from = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&frame, 0)) +
                               static_cast<std::ptrdiff_t>(y) * GST_VIDEO_FRAME_PLANE_STRIDE(&frame, 0);
            std::copy_n(from, picture->stride(), picture->row(y));
        }
        gst_video_frame_unmap(&frame);
        picture->number = ++source.number_;
        picture->time = std::chrono::steady_clock::now().time_since_epoch().count();
        if (source.input_.mark)
            drawFrameMark(picture->bytes.data(), picture->width, picture->height, picture->stride(),
                          {static_cast<std::uint8_t>(*source.input_.mark),
                           static_cast<std::uint16_t>(picture->number)});
        source.publish(std::move(picture));
    }
    gst_sample_unref(sample);
    return GST_FLOW_OK;
}

GstSource::GstSource(GstInput input) : input_(std::move(input)) {
    startGStreamer();
    thread_ = std::thread(&GstSource::run, this);
}

GstSource::~GstSource() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        changed_.notify_all();
    }
    thread_.join();
}

std::string GstSource::mistakeIn(const std::string& text) {
    std::error_code error;
    if (isUrl(text)) {
        if (gst_uri_is_valid(text.c_str()) == FALSE)
            return "'" + shown(text) + "' is not a URL";
    } else if (!std::filesystem::exists(text, error)) {
        return "there is no file '" + text + "'";
    }
    return {};
}

// Decides by the clock, because some cameras send no time stamps. A picture that is early by up to a quarter of the
// interval is still taken, so that a camera's jitter costs no pictures.
bool GstSource::isTimeForAPicture() {
    const auto now = std::chrono::steady_clock::now();
    const std::chrono::nanoseconds interval(1000000000 / input_.fps);
    if (now < nextTime_ - interval / 4)
        return false;
    nextTime_ = std::max(nextTime_ + interval, now);
    return true;
}

bool GstSource::stopping() {
    const std::lock_guard lock(mutex_);
    return stopping_;
}

void GstSource::run() {
    while (!stopping()) {
        playOnce();
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, restartPause, [this] { return stopping_; });
    }
}

// Returns when the input ends or fails, or the source is being destroyed.
void GstSource::playOnce() {
    Pipeline pipeline(*this);
    if (!pipeline.start()) {
        logLine("input '" + shown(input_.text) + "' cannot be started");
        return;
    }
    GstBus* bus = gst_element_get_bus(pipeline.pipeline);
    bool goOn = true;
    while (goOn && !stopping()) {
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, busPoll, static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (message == nullptr)
            continue;
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
            goOn = !isUrl(input_.text) && pipeline.rewind();
        } else {
            GError* error = nullptr;
            gst_message_parse_error(message, &error, nullptr);
            logLine("input '" + shown(input_.text) + "': " + error->message);
            g_error_free(error);
            goOn = false;
        }
        gst_message_unref(message);
    }
    gst_object_unref(bus);
}
