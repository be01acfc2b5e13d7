#include "appliance/input/video_device.h"

#include "appliance/input/gateway_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace input {
namespace {

constexpr std::uint32_t bufferCount = 4;
constexpr int longestWait = 5000; // milliseconds
constexpr std::uint32_t mostEntries = 256;

struct FormRow {
    std::uint32_t pixels;
    bool encoded;
};
// The best one first.
constexpr std::array<FormRow, 9> forms{{{V4L2_PIX_FMT_H264, true},
                                        {V4L2_PIX_FMT_MJPEG, true},
                                        {V4L2_PIX_FMT_JPEG, true},
                                        {V4L2_PIX_FMT_YUYV, false},
                                        {V4L2_PIX_FMT_UYVY, false},
                                        {V4L2_PIX_FMT_NV12, false},
                                        {V4L2_PIX_FMT_YUV420, false},
                                        {V4L2_PIX_FMT_RGB24, false},
                                        {V4L2_PIX_FMT_GREY, false}}};

int openDevice(const char* path) {
    return open(path, O_RDWR | O_NONBLOCK | O_CLOEXEC);
}

int waitForDevice(int fd, int milliseconds) {
    pollfd ready{fd, POLLIN, 0};
    return poll(&ready, 1, milliseconds);
}

} // namespace

DeviceCalls DeviceCalls::ofSystem() {
    return {.open = openDevice,
            .control = [](int fd, unsigned long call, void* argument) { return ioctl(fd, call, argument); },
            .map =
                [](int fd, std::size_t size, std::int64_t offset) {
                    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd,
                                        static_cast<off_t>(offset));
                    return memory == MAP_FAILED ? nullptr : memory;
                },
            .unmap = [](void* memory, std::size_t size) { munmap(memory, size); },
            .wait = waitForDevice,
            .close = [](int fd) { ::close(fd); }};
}

VideoDevice::VideoDevice(DeviceCalls calls, std::string path)
    : calls_(std::move(calls)), path_(std::move(path)), fd_(calls_.open(path_.c_str())) {
    if (fd_ < 0) {
        if (errno == ENOENT || errno == ENODEV || errno == ENXIO)
            throw InputFailure{"there is no camera at " + path_};
        fail("can't be opened");
    }
    try {
        checkKind();
        choose();
        begin();
    } catch (...) {
        for (const Buffer& buffer : buffers_)
            calls_.unmap(buffer.memory, buffer.size);
        calls_.close(fd_);
        throw;
    }
}

VideoDevice::~VideoDevice() {
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    control(VIDIOC_STREAMOFF, &type);
    for (const Buffer& buffer : buffers_)
        calls_.unmap(buffer.memory, buffer.size);
    calls_.close(fd_);
}

void VideoDevice::fail(const std::string& what) const {
    const int error = errno;
    throw InputFailure{"the camera " + path_ + " " + what + ": " +
                       (error == EBUSY ? "another program uses it" : std::strerror(error))};
}

bool VideoDevice::control(unsigned long call, void* argument) const {
    for (int i = 0; i < 10; ++i) {
        if (calls_.control(fd_, call, argument) >= 0)
            return true;
        if (errno != EINTR)
            return false;
    }
    return false;
}

void VideoDevice::checkKind() const {
    v4l2_capability capability{};
    if (!control(VIDIOC_QUERYCAP, &capability))
        throw InputFailure{path_ + " is not a camera"};
    const std::uint32_t can = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps
                                                                                    : capability.capabilities;
    if ((can & V4L2_CAP_VIDEO_CAPTURE) == 0 || (can & V4L2_CAP_STREAMING) == 0)
        throw InputFailure{path_ + " is not a camera that sends pictures"};
}

void VideoDevice::choose() {
    std::vector<std::uint32_t> offered;
    for (std::uint32_t i = 0; i < mostEntries; ++i) {
        v4l2_fmtdesc entry{};
        entry.index = i;
        entry.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        if (!control(VIDIOC_ENUM_FMT, &entry))
            break;
        offered.push_back(entry.pixelformat);
    }
    const auto* const best = std::ranges::find_if(
        forms, [&](const FormRow& row) { return std::ranges::find(offered, row.pixels) != offered.end(); });
    if (best == forms.end())
        throw InputFailure{"the camera " + path_ + " has no form of pictures that can be used"};
    form_.pixels = best->pixels;
    chooseSize(best->encoded ? 1920 : 1280, best->encoded ? 1080 : 720);
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.pixelformat = form_.pixels;
    format.fmt.pix.width = static_cast<std::uint32_t>(form_.width);
    format.fmt.pix.height = static_cast<std::uint32_t>(form_.height);
    format.fmt.pix.field = V4L2_FIELD_ANY;
    if (!control(VIDIOC_S_FMT, &format))
        fail("refuses its own form of pictures");
    if (format.fmt.pix.pixelformat != form_.pixels)
        throw InputFailure{"the camera " + path_ + " sends another form of pictures than it offers"};
    form_.width = static_cast<int>(format.fmt.pix.width);
    form_.height = static_cast<int>(format.fmt.pix.height);
    form_.stride = best->encoded ? 0 : static_cast<int>(format.fmt.pix.bytesperline);
}

// The largest size up to these limits, or the present one where the camera has no list.
void VideoDevice::chooseSize(int widest, int highest) {
    form_.width = widest;
    form_.height = highest;
    int best = 0;
    for (std::uint32_t i = 0; i < mostEntries; ++i) {
        v4l2_frmsizeenum size{};
        size.index = i;
        size.pixel_format = form_.pixels;
        if (!control(VIDIOC_ENUM_FRAMESIZES, &size) || size.type != V4L2_FRMSIZE_TYPE_DISCRETE)
            return;
        const auto width = static_cast<int>(size.discrete.width);
        const auto height = static_cast<int>(size.discrete.height);
        if (width > widest || height > highest || width * height <= best)
            continue;
        best = width * height;
        form_.width = width;
        form_.height = height;
    }
}

void VideoDevice::begin() {
    v4l2_requestbuffers request{};
    request.count = bufferCount;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    if (!control(VIDIOC_REQBUFS, &request))
        fail("can't be read");
    for (std::uint32_t i = 0; i < request.count; ++i) {
        v4l2_buffer buffer{};
        buffer.index = i;
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        void* memory =
            control(VIDIOC_QUERYBUF, &buffer) ? calls_.map(fd_, buffer.length, buffer.m.offset) : nullptr;
        if (memory == nullptr)
            fail("can't be read");
        buffers_.push_back({memory, buffer.length});
        queue(i);
    }
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    if (!control(VIDIOC_STREAMON, &type))
        fail("can't be started");
}

void VideoDevice::queue(std::uint32_t index) const {
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    if (!control(VIDIOC_QBUF, &buffer))
        fail("can't be read");
}

void VideoDevice::next(const std::function<void(std::string_view picture, std::int64_t time)>& take) {
    for (;;) {
        if (calls_.wait(fd_, longestWait) == 0)
            throw InputFailure{"the camera " + path_ + " sends nothing"};
        v4l2_buffer buffer{};
        buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        buffer.memory = V4L2_MEMORY_MMAP;
        if (!control(VIDIOC_DQBUF, &buffer)) {
            if (errno == EAGAIN)
                continue;
            if (errno == ENODEV)
                throw InputFailure{"the camera " + path_ + " was unplugged"};
            fail("can't be read");
        }
        const std::size_t used = buffer.index < buffers_.size()
                                     ? std::min<std::size_t>(buffer.bytesused, buffers_[buffer.index].size)
                                     : 0;
        const bool good = used > 0 && (buffer.flags & V4L2_BUF_FLAG_ERROR) == 0;
        if (good)
            take({static_cast<const char*>(buffers_[buffer.index].memory), used},
                 std::int64_t{buffer.timestamp.tv_sec} * 1'000'000 + buffer.timestamp.tv_usec);
        if (buffer.index < buffers_.size())
            queue(buffer.index);
        if (good)
            return;
    }
}

} // namespace input
