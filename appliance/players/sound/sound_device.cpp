#include "appliance/players/sound/sound_device.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <gst/app/gstappsrc.h>
#include <gst/gst.h>
#include <string_view>
#include <thread>
#include <unistd.h>

namespace player {
namespace {

constexpr std::string_view pulsePrefix = "pulse:";
constexpr std::string_view filePrefix = "file:";
constexpr int bufferMs = 100;
constexpr int periodMs = 10;

constexpr std::size_t framesOf(int milliseconds) {
    return std::size_t(soundRate) / 1000 * static_cast<std::size_t>(milliseconds);
}

// A sink of GStreamer, fed by an appsrc that blocks.
class SinkDevice : public SoundDevice {
public:
    SinkDevice(GstElement* pipeline, GstElement* source) : pipeline_(pipeline), source_(source) {}
    ~SinkDevice() override {
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        gst_object_unref(source_);
        gst_object_unref(pipeline_);
    }

    bool write(const SoundFrame* frames, std::size_t count) override {
        GstBuffer* buffer = gst_buffer_new_memdup(frames, count * sizeof *frames);
        return gst_app_src_push_buffer(GST_APP_SRC(source_), buffer) == GST_FLOW_OK;
    }
    std::size_t latency() const override { return framesOf(bufferMs + 2 * periodMs); }

private:
    GstElement* pipeline_;
    GstElement* source_;
};

// Appends the samples to a file as fast as a sound card would play them.
class FileDevice : public SoundDevice {
public:
    explicit FileDevice(int fd) : fd_(fd) {}
    ~FileDevice() override { close(fd_); }

    bool write(const SoundFrame* frames, std::size_t count) override {
        const std::size_t bytes = count * sizeof *frames;
        if (::write(fd_, frames, bytes) != static_cast<ssize_t>(bytes))
            return false;
        due_ += std::chrono::microseconds(1'000'000 * count / soundRate);
        std::this_thread::sleep_until(due_);
        return true;
    }
    std::size_t latency() const override { return 0; }

private:
    int fd_;
    std::chrono::steady_clock::time_point due_ = std::chrono::steady_clock::now();
};

std::unique_ptr<SoundDevice> openFile(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    return fd < 0 ? nullptr : std::make_unique<FileDevice>(fd);
}

// The element, with this device unless that is ""; null when it is not installed.
GstElement* makeSink(const char* element, const std::string& device) {
    GstElement* sink = gst_element_factory_make(element, nullptr);
    if (sink == nullptr)
        return nullptr;
    // sync=false: the samples are played one after the other, at the device's pace.
    g_object_set(sink, "sync", FALSE, "buffer-time", gint64{1000} * bufferMs, "latency-time",
                 gint64{1000} * periodMs, nullptr);
    if (!device.empty())
        g_object_set(sink, "device", device.c_str(), nullptr);
    return sink;
}

std::unique_ptr<SoundDevice> openSink(const char* element, const std::string& device) {
    GstElement* sink = makeSink(element, device);
    GstElement* source = sink == nullptr ? nullptr : gst_element_factory_make("appsrc", nullptr);
    if (source == nullptr) {
        gst_clear_object(&sink);
        return nullptr;
    }
    GstCaps* caps = gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING,
                                        G_BYTE_ORDER == G_LITTLE_ENDIAN ? "S16LE" : "S16BE", "layout",
                                        G_TYPE_STRING, "interleaved", "rate", G_TYPE_INT, soundRate,
                                        "channels", G_TYPE_INT, soundChannels, nullptr);
    g_object_set(source, "caps", caps, "format", GST_FORMAT_TIME, "block", TRUE, "max-bytes",
                 static_cast<guint64>(framesOf(periodMs) * sizeof(SoundFrame)), nullptr);
    gst_caps_unref(caps);
    GstElement* pipeline = gst_pipeline_new(nullptr);
    gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
    auto device_ = std::make_unique<SinkDevice>(pipeline, GST_ELEMENT(gst_object_ref(source)));
    // The sink opens the device when it becomes ready.
    if (gst_element_link(source, sink) == FALSE ||
        gst_element_set_state(sink, GST_STATE_READY) == GST_STATE_CHANGE_FAILURE ||
        gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return nullptr;
    return device_;
}

} // namespace

std::unique_ptr<SoundDevice> openSoundDevice(const std::string& name) {
    if (name.starts_with(filePrefix))
        return openFile(name.substr(filePrefix.size()));
    if (name.starts_with(pulsePrefix))
        return openSink("pulsesink", name.substr(pulsePrefix.size()));
    if (!name.empty())
        return openSink("alsasink", name);
    auto device = openSink("pulsesink", "");
    return device != nullptr ? std::move(device) : openSink("alsasink", "");
}

} // namespace player
