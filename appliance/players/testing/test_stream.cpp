#include "appliance/players/testing/test_stream.h"

#include "appliance/players/testing/test_marking.h"

#include "appliance/mark/frame_mark.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gst/gst.h>
#include <iterator>
#include <unistd.h>
#include <utility>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

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

// Runs the pipeline to its end. False after an error.
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

constexpr int width = 176;
constexpr int height = 144;

// Uses libavcodec directly: it repeats the sequence header before each key picture, so that a player can join.
class Mpeg2Encoder {
public:
    Mpeg2Encoder() {
        const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MPEG2VIDEO);
        context_ = codec == nullptr ? nullptr : avcodec_alloc_context3(codec);
        if (context_ == nullptr)
            return;
        context_->width = frame_->width = width;
        context_->height = frame_->height = height;
        context_->time_base = {1, 25};
        context_->framerate = {25, 1};
        context_->pix_fmt = AV_PIX_FMT_YUV420P;
        frame_->format = AV_PIX_FMT_YUV420P;
        context_->gop_size = 10;
        context_->max_b_frames = 0;
        context_->bit_rate = 1'000'000;
        good_ = avcodec_open2(context_, codec, nullptr) == 0 && av_frame_get_buffer(frame_, 0) == 0;
    }
    ~Mpeg2Encoder() {
        avcodec_free_context(&context_);
        av_frame_free(&frame_);
        av_packet_free(&packet_);
    }
    Mpeg2Encoder(const Mpeg2Encoder&) = delete;
    Mpeg2Encoder& operator=(const Mpeg2Encoder&) = delete;

    std::string encode(int source, int counter) {
        if (!good_ || av_frame_make_writable(frame_) != 0)
            return "";
        std::vector<std::uint8_t> pixels(std::size_t{4} * width * height, 0x60);
        drawFrameMark(pixels.data(), width, height, 4 * width,
                      {static_cast<std::uint8_t>(source), static_cast<std::uint16_t>(counter)});
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                frame_->data[0][y * frame_->linesize[0] + x] =
                    pixels[4 * (static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x))];
        for (const int plane : {1, 2})
            std::memset(frame_->data[plane], 128,
                        static_cast<std::size_t>(frame_->linesize[plane] * height / 2));
        frame_->pts = counter;
        std::string bytes;
        if (avcodec_send_frame(context_, frame_) == 0)
            while (avcodec_receive_packet(context_, packet_) == 0) {
                bytes.append(reinterpret_cast<const char*>(packet_->data),
                             static_cast<std::size_t>(packet_->size));
                av_packet_unref(packet_);
            }
        return bytes;
    }

private:
    AVCodecContext* context_ = nullptr;
    AVFrame* frame_ = av_frame_alloc();
    AVPacket* packet_ = av_packet_alloc();
    bool good_ = false;
};

std::string livePictures() {
    return "videotestsrc pattern=ball is-live=true ! "
           "video/x-raw,format=BGRx,width=176,height=144,framerate=25/1 ! identity name=mark ! "
           "videoconvert ! "
           "video/x-raw,format=I420 ! ";
}

} // namespace

struct TestStream::State {
    explicit State(int source) : marking(source, width, height) {}
    ~State() {
        if (pipeline != nullptr) {
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
        }
        std::filesystem::remove(file);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    Marking marking;
    GstElement* pipeline = nullptr;
    std::string file = scratchFile("paced");
};

TestStream::TestStream(std::unique_ptr<State> state) : state_(std::move(state)) {
    if (state_->pipeline != nullptr)
        gst_element_set_state(state_->pipeline, GST_STATE_PLAYING);
}

TestStream::TestStream(int source, const std::string& rest) : state_(std::make_unique<State>(source)) {
    state_->pipeline = pipelineOf(livePictures() + rest);
    if (state_->pipeline == nullptr)
        return;
    state_->marking.apply(state_->pipeline);
    gst_element_set_state(state_->pipeline, GST_STATE_PLAYING);
}

TestStream TestStream::paced(const std::string& elementary, const std::string& rest,
                             const std::string& more) {
    auto state = std::make_unique<State>(0);
    std::ofstream(state->file, std::ios::binary) << elementary;
    state->pipeline = pipelineOf("filesrc location=" + state->file +
                                 " ! mpegvideoparse ! identity name=pace ! " + rest + " " + more);
    if (state->pipeline != nullptr)
        state->marking.pace(state->pipeline);
    return TestStream(std::move(state));
}

TestStream::~TestStream() = default;

bool TestStream::good() const {
    return state_->pipeline != nullptr && gst_element_get_state(state_->pipeline, nullptr, nullptr,
                                                                10 * GST_SECOND) != GST_STATE_CHANGE_FAILURE;
}

std::string mpeg2Stream(int source, int count) {
    Mpeg2Encoder encoder;
    std::string stream;
    for (int i = 0; i < count; ++i)
        stream += encoder.encode(source, i);
    return stream;
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
