// A camera at this machine, through Video4Linux. For one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace input {

// The calls that reach the device; tests have a device of their own.
struct DeviceCalls {
    std::function<int(const char* path)> open;
    std::function<int(int fd, unsigned long call, void* argument)> control;
    std::function<void*(int fd, std::size_t size, std::int64_t offset)> map; // null: an error
    std::function<void(void* memory, std::size_t size)> unmap;
    std::function<int(int fd, int milliseconds)> wait; // as poll()
    std::function<void(int fd)> close;

    static DeviceCalls ofSystem();
};

struct DeviceForm {
    std::uint32_t pixels = 0; // V4L2_PIX_FMT_H264, ...
    int width = 0;
    int height = 0;
    int stride = 0; // bytes of a row; 0 for encoded pictures
};

class VideoDevice {
public:
    // Opens the device in the best form that it has: H.264, Motion JPEG, then pictures that are not encoded; as large
    // as possible, up to 1920x1080 or, if not encoded, 1280x720. Throws InputFailure.
    VideoDevice(DeviceCalls calls, std::string path);
    ~VideoDevice();
    VideoDevice(const VideoDevice&) = delete;
    VideoDevice& operator=(const VideoDevice&) = delete;

    const DeviceForm& form() const { return form_; }

    // Waits for the next picture and gives it to `take`, with its time in microseconds. Throws InputFailure when the
    // camera is gone or sends nothing for 5 seconds.
    void next(const std::function<void(std::string_view picture, std::int64_t time)>& take);

private:
    struct Buffer {
        void* memory;
        std::size_t size;
    };

    bool control(unsigned long call, void* argument) const;
    void checkKind() const;
    void choose();
    void chooseSize(int widest, int highest);
    void begin();
    void queue(std::uint32_t index) const;
    [[noreturn]] void fail(const std::string& what) const;

    DeviceCalls calls_;
    std::string path_;
    int fd_;
    DeviceForm form_;
    std::vector<Buffer> buffers_;
};

} // namespace input
