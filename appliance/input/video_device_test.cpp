// Cameras at this machine, with a device of our own in place of the kernel's calls.
#include "appliance/input/device_playback.h"
#include "appliance/input/picture_encoder.h"
#include "appliance/input/video_device.h"
#include "tests/support/packed_jpeg.h"

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <linux/videodev2.h>
#include <map>
#include <sys/socket.h>
#include <unistd.h>

namespace input {
namespace {

using testing::HasSubstr;

// Offers these forms and sizes, sends its pictures one after the other, and is unplugged then.
class FakeDevice {
public:
    std::vector<std::uint32_t> forms{V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_MJPEG};
    std::vector<std::pair<int, int>> sizes{{640, 480}, {320, 240}};
    std::vector<std::string> pictures;
    std::uint32_t capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    int openError = 0;
    bool silent = false;
    bool streams = false;
    int open = 0;
    int mapped = 0;

    DeviceCalls calls() {
        return {
            .open =
                [this](const char* /*path*/) { return errno = openError, openError == 0 ? (++open, 7) : -1; },
            .control =
                [this](int /*fd*/, unsigned long call, void* argument) {
                    errno = control(call, argument);
                    return errno == 0 ? 0 : -1;
                },
            .map = [this](int /*fd*/, std::size_t size, std::int64_t offset) -> void* {
                ++mapped;
                auto& buffer = buffers_[static_cast<std::size_t>(offset)];
                buffer.resize(size);
                return buffer.data();
            },
            .unmap = [this](void* /*memory*/, std::size_t /*size*/) { --mapped; },
            .wait = [this](int /*fd*/, int /*milliseconds*/) { return silent ? 0 : 1; },
            .close = [this](int /*fd*/) { --open; }};
    }

private:
    static constexpr std::uint32_t bufferBytes = 640 * 480 * 2;

    template<class Argument>
    static Argument& as(void* argument) {
        return *static_cast<Argument*>(argument);
    }

    int control(unsigned long call, void* argument) {
        switch (call) {
        case VIDIOC_QUERYCAP:
            as<v4l2_capability>(argument).capabilities = capabilities;
            return 0;
        case VIDIOC_ENUM_FMT: {
            auto& entry = as<v4l2_fmtdesc>(argument);
            if (entry.index >= forms.size())
                return EINVAL;
            entry.pixelformat = forms[entry.index];
            return 0;
        }
        case VIDIOC_ENUM_FRAMESIZES: {
            auto& entry = as<v4l2_frmsizeenum>(argument);
            if (entry.index >= sizes.size())
                return EINVAL;
            entry.type = V4L2_FRMSIZE_TYPE_DISCRETE;
            entry.discrete = {static_cast<std::uint32_t>(sizes[entry.index].first),
                              static_cast<std::uint32_t>(sizes[entry.index].second)};
            return 0;
        }
        case VIDIOC_S_FMT: {
            auto& pixels = as<v4l2_format>(argument).fmt.pix;
            pixels.bytesperline = pixels.width * 2;
            return 0;
        }
        case VIDIOC_REQBUFS:
            as<v4l2_requestbuffers>(argument).count = 2;
            return 0;
        case VIDIOC_QUERYBUF: {
            auto& buffer = as<v4l2_buffer>(argument);
            buffer.length = bufferBytes;
            buffer.m.offset = buffer.index;
            return 0;
        }
        case VIDIOC_QBUF:
            queued_.push_back(as<v4l2_buffer>(argument).index);
            return 0;
        case VIDIOC_DQBUF:
            return give(as<v4l2_buffer>(argument));
        case VIDIOC_STREAMON:
        case VIDIOC_STREAMOFF:
            streams = call == VIDIOC_STREAMON;
            return 0;
        default:
            return EINVAL;
        }
    }

    int give(v4l2_buffer& buffer) {
        if (next_ >= pictures.size() || queued_.empty())
            return ENODEV;
        buffer.index = queued_.front();
        queued_.erase(queued_.begin());
        const std::string& picture = pictures[next_];
        std::memcpy(buffers_[buffer.index].data(), picture.data(), picture.size());
        buffer.bytesused = static_cast<std::uint32_t>(picture.size());
        buffer.timestamp = {0, static_cast<suseconds_t>(40'000 * next_)};
        ++next_;
        return 0;
    }

    std::map<std::size_t, std::string> buffers_;
    std::vector<std::uint32_t> queued_;
    std::size_t next_ = 0;
};

std::string failureOf(FakeDevice& fake) {
    try {
        const VideoDevice device(fake.calls(), "/dev/video0");
        return "";
    } catch (const InputFailure& failure) {
        return failure.reason;
    }
}

// What camera-input sends for the device's pictures, by channel.
std::map<int, std::vector<std::string>> played(FakeDevice& fake) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const int room = 4 * 1024 * 1024; // nobody reads before the end
    setsockopt(ends[0], SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
    const GatewaySocket socket(ends[0]);
    try {
        VideoDevice device(fake.calls(), "/dev/video0");
        playDevice(socket, device);
    } catch (const InputFailure& failure) {
        EXPECT_EQ(failure.reason, "the camera /dev/video0 was unplugged");
    }
    close(ends[0]);
    std::string all;
    char bytes[4096];
    for (ssize_t count = 0; (count = recv(ends[1], bytes, sizeof bytes, 0)) > 0;)
        all.append(bytes, static_cast<std::size_t>(count));
    close(ends[1]);
    std::map<int, std::vector<std::string>> messages;
    for (std::size_t at = 0; at + 4 <= all.size();) {
        const std::size_t length =
            std::size_t{static_cast<std::uint8_t>(all[at + 2])} << 8 | static_cast<std::uint8_t>(all[at + 3]);
        messages[all[at + 1]].push_back(all.substr(at + 4, length));
        at += 4 + length;
    }
    return messages;
}

constexpr int video = static_cast<int>(FromInput::video);
constexpr int description = static_cast<int>(FromInput::description);
constexpr int encoded = static_cast<int>(FromInput::encoded);

// Grey pictures of 320x240, encoded by libav.
std::vector<std::string> encodedPictures(AVCodecID codec, AVPixelFormat format, std::size_t count) {
    const Av<AVCodecContext> encoder(avcodec_alloc_context3(avcodec_find_encoder(codec)));
    encoder->width = 320;
    encoder->height = 240;
    encoder->pix_fmt = format;
    encoder->time_base = {1, 25};
    encoder->max_b_frames = 0;
    encoder->color_range = AVCOL_RANGE_JPEG;
    AVDictionary* options = nullptr;
    av_dict_set(&options, codec == AV_CODEC_ID_H264 ? "tune" : "huffman",
                codec == AV_CODEC_ID_H264 ? "zerolatency" : "default", 0);
    EXPECT_GE(avcodec_open2(encoder.get(), encoder->codec, &options), 0);
    av_dict_free(&options);
    std::vector<std::string> pictures;
    for (std::size_t i = 0; i < count; ++i) {
        const Av<AVFrame> frame(av_frame_alloc());
        frame->width = 320;
        frame->height = 240;
        frame->format = format;
        frame->pts = static_cast<std::int64_t>(i);
        av_frame_get_buffer(frame.get(), 0);
        std::memset(frame->buf[0]->data, 128 + static_cast<int>(i), frame->buf[0]->size);
        const Av<AVPacket> packet(av_packet_alloc());
        avcodec_send_frame(encoder.get(), frame.get());
        while (avcodec_receive_packet(encoder.get(), packet.get()) == 0)
            pictures.emplace_back(reinterpret_cast<const char*>(packet->data),
                                  static_cast<std::size_t>(packet->size));
    }
    return pictures;
}

TEST(VideoDevice, TakesTheBestFormAndTheLargestSize) {
    FakeDevice fake;
    fake.sizes = {{320, 240}, {1280, 960}, {1920, 1080}, {3840, 2160}, {640, 480}};
    {
        const VideoDevice device(fake.calls(), "/dev/video0");
        EXPECT_EQ(device.form().pixels, V4L2_PIX_FMT_MJPEG);
        EXPECT_EQ(device.form().width, 1920);
        EXPECT_TRUE(fake.streams);
    }
    EXPECT_FALSE(fake.streams);
    fake.forms = {V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_H264};
    EXPECT_EQ(VideoDevice(fake.calls(), "").form().pixels, V4L2_PIX_FMT_H264);
    fake.forms = {V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUYV};
    EXPECT_EQ(VideoDevice(fake.calls(), "").form().pixels, V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(VideoDevice(fake.calls(), "").form().width, 640) << "what is encoded here is smaller";
    EXPECT_EQ(fake.open, 0);
    EXPECT_EQ(fake.mapped, 0);
}

TEST(VideoDevice, SaysWhyItCannotBeUsed) {
    FakeDevice fake;
    fake.openError = ENOENT;
    EXPECT_EQ(failureOf(fake), "there is no camera at /dev/video0");
    fake.openError = EACCES;
    EXPECT_EQ(failureOf(fake), "the camera /dev/video0 can't be opened: Permission denied");
    fake.openError = EBUSY;
    EXPECT_THAT(failureOf(fake), HasSubstr("another program uses it"));
    fake.openError = 0;
    fake.capabilities = V4L2_CAP_VIDEO_OUTPUT;
    EXPECT_THAT(failureOf(fake), HasSubstr("is not a camera"));
    fake.capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
    fake.forms = {V4L2_PIX_FMT_SBGGR8};
    EXPECT_THAT(failureOf(fake), HasSubstr("no form of pictures that can be used"));
    EXPECT_EQ(fake.open, 0);
}

TEST(VideoDevice, SilenceIsAFailure) {
    FakeDevice fake;
    fake.silent = true;
    VideoDevice device(fake.calls(), "/dev/video0");
    EXPECT_THROW(device.next([](std::string_view, std::int64_t) {}), InputFailure);
}

// As most cameras make them: half as many samples of colour in a row.
std::string cameraJpeg() {
    const std::string row(std::size_t{3} * 320, 'x');
    return packing::packedJpeg(
        {.width = 320,
         .height = 240,
         .row = [&](int /*y*/) { return reinterpret_cast<const unsigned char*>(row.data()); }},
        [](jpeg_compress_struct& encoder) {
            encoder.comp_info[0].h_samp_factor = 2;
            encoder.comp_info[0].v_samp_factor = 1;
        });
}

TEST(DevicePlayback, HandsMotionJpegOn) {
    FakeDevice fake;
    fake.sizes = {{320, 240}};
    fake.pictures.assign(3, cameraJpeg());
    auto messages = played(fake);
    EXPECT_THAT(messages[description].at(0), HasSubstr("m=video 0 RTP/AVP 26"));
    EXPECT_EQ(messages[encoded].size(), 0U);
    EXPECT_GE(messages[video].size(), 3U);
}

TEST(DevicePlayback, EncodesMotionJpegThatRtpCannotCarry) {
    FakeDevice fake;
    fake.sizes = {{320, 240}};
    fake.pictures = encodedPictures(AV_CODEC_ID_MJPEG, AV_PIX_FMT_YUVJ444P, 3);
    auto messages = played(fake);
    EXPECT_THAT(messages[description].at(0), HasSubstr("H264/90000"));
    EXPECT_EQ(messages[encoded], std::vector<std::string>{"MJPEG"});
    EXPECT_GE(messages[video].size(), 3U);
}

TEST(DevicePlayback, HandsH264On) {
    FakeDevice fake;
    fake.forms = {V4L2_PIX_FMT_H264};
    fake.sizes = {{320, 240}};
    fake.pictures = encodedPictures(AV_CODEC_ID_H264, AV_PIX_FMT_YUV420P, 3);
    auto messages = played(fake);
    EXPECT_THAT(messages[description].at(0), HasSubstr("H264/90000"));
    EXPECT_EQ(messages[encoded].size(), 0U);
    EXPECT_GE(messages[video].size(), 3U);
}

TEST(DevicePlayback, EncodesPicturesThatAreNot) {
    FakeDevice fake;
    fake.forms = {V4L2_PIX_FMT_YUYV};
    fake.pictures.assign(3, std::string(640 * 480 * 2, '\x80'));
    auto messages = played(fake);
    EXPECT_THAT(messages[description].at(0), HasSubstr("H264/90000"));
    EXPECT_EQ(messages[encoded], std::vector<std::string>{"raw video"});
    EXPECT_GE(messages[video].size(), 3U);
}

} // namespace
} // namespace input
