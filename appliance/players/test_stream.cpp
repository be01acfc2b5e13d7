#include "appliance/players/test_stream.h"

#include "appliance/players/test_marking.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gst/gst.h>
#include <iterator>
#include <unistd.h>

namespace player {
namespace {

std::string readAll(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string scratchFile(const char* name) {
    return "/tmp/player-stream-" + std::to_string(getpid()) + "-" + name;
}

GstElement* pipelineOf(const std::string& description) {
    gst_init(nullptr, nullptr);
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description.c_str(), &error);
    if (error != nullptr) {
        std::fprintf(stderr, "%s: %s\n", description.c_str(), error->message);
        g_error_free(error);
    }
    return pipeline;
}

// Runs to its end. False after an error.
bool runToEnd(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 60 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    const bool good = message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS;
    if (message != nullptr)
        gst_message_unref(message);
    gst_object_unref(bus);
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return good;
}

std::string pictures(int count, bool live) {
    return std::string("videotestsrc pattern=ball is-live=") + (live ? "true" : "false") +
           " num-buffers=" + std::to_string(count) +
           " ! video/x-raw,format=BGRx,width=176,height=144,framerate=25/1 ! identity name=mark ! "
           "videoconvert ! "
           "video/x-raw,format=I420 ! ";
}

} // namespace

struct TestStream::State {
    explicit State(int source) : marking(source, 176, 144) {}
    Marking marking;
    GstElement* pipeline = nullptr;
};

TestStream::TestStream(int source, const std::string& rest, const std::string& more, int count)
    : state_(std::make_unique<State>(source)) {
    state_->pipeline = pipelineOf(pictures(count, true) + rest + " " + more);
    if (state_->pipeline == nullptr)
        return;
    state_->marking.apply(state_->pipeline);
    gst_element_set_state(state_->pipeline, GST_STATE_PLAYING);
}

TestStream::~TestStream() {
    if (state_->pipeline == nullptr)
        return;
    gst_element_set_state(state_->pipeline, GST_STATE_NULL);
    gst_object_unref(state_->pipeline);
}

bool TestStream::good() const {
    return state_->pipeline != nullptr && gst_element_get_state(state_->pipeline, nullptr, nullptr,
                                                                10 * GST_SECOND) != GST_STATE_CHANGE_FAILURE;
}

std::string mpeg2Stream(int source, int count) {
    const std::string path = scratchFile("elementary");
    GstElement* pipeline = pipelineOf(pictures(count, false) + mpeg2Encoder + " ! filesink location=" + path);
    if (pipeline == nullptr)
        return "";
    Marking marking(source, 176, 144);
    marking.apply(pipeline);
    const bool good = runToEnd(pipeline);
    std::string stream = readAll(path);
    std::filesystem::remove(path);
    return good ? stream : "";
}

std::string packed(const std::string& elementary, const std::string& muxer) {
    const std::string from = scratchFile("from");
    const std::string to = scratchFile("to");
    std::ofstream(from, std::ios::binary) << elementary;
    GstElement* pipeline = pipelineOf("filesrc location=" + from + " ! mpegvideoparse ! " + muxer +
                                      " ! filesink location=" + to);
    const bool good = pipeline != nullptr && runToEnd(pipeline);
    std::string stream = readAll(to);
    std::filesystem::remove(from);
    std::filesystem::remove(to);
    return good ? stream : "";
}

} // namespace player
