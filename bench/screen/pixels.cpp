#include "bench/screen/pixels.h"

#include <chrono>
#include <cstring>
#include <endian.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace bench {
namespace {

// Words of an X window dump's header, which are big-endian.
enum HeaderWord {
    headerSize = 0,
    pictureWidth = 4,
    pictureHeight = 5,
    bitsPerPixel = 11,
    lineSize = 12,
    colours = 19
};
constexpr std::size_t headerWords = 25;
constexpr std::size_t colourSize = 12;

std::uint32_t word(const std::uint8_t* header, HeaderWord index) {
    std::uint32_t value = 0;
    std::memcpy(&value, header + sizeof value * index, sizeof value);
    return be32toh(value);
}

} // namespace

InTime::InTime() {
    pthread_getschedparam(pthread_self(), &policy_, &priority_);
    sched_param priority{};
    priority.sched_priority = 50;
    pthread_setschedparam(pthread_self(), SCHED_RR, &priority);
}

InTime::~InTime() {
    pthread_setschedparam(pthread_self(), policy_, &priority_);
}

double clockMs() {
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

Pixels::Pixels(const std::string& file) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat about {};
    if (fd < 0 || fstat(fd, &about) != 0 || about.st_size < static_cast<off_t>(4 * headerWords)) {
        if (fd >= 0)
            close(fd);
        throw std::runtime_error(file + " has no pixels");
    }
    size_ = static_cast<std::size_t>(about.st_size);
    void* mapped = mmap(nullptr, size_, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED)
        throw std::runtime_error(file + " can't be mapped");
    bytes_ = static_cast<const std::uint8_t*>(mapped);
    width_ = static_cast<int>(word(bytes_, pictureWidth));
    height_ = static_cast<int>(word(bytes_, pictureHeight));
    stride_ = static_cast<int>(word(bytes_, lineSize));
    offset_ = word(bytes_, headerSize) + colourSize * word(bytes_, colours);
    if (word(bytes_, bitsPerPixel) != 32 || stride_ < 4 * width_ ||
        offset_ + static_cast<std::size_t>(stride_) * static_cast<std::size_t>(height_) > size_)
        throw std::runtime_error(file + " has pixels of another form");
}

Pixels::~Pixels() {
    munmap(const_cast<std::uint8_t*>(bytes_), size_);
}

int Pixels::brightness(int x, int y) const {
    const std::uint8_t* pixel = first() + static_cast<std::ptrdiff_t>(y) * stride_ + std::ptrdiff_t{4} * x;
    return (pixel[0] + pixel[1] + pixel[2]) / 3;
}

bool Watcher::look() {
    const std::optional<FrameMark> mark = pixels_.mark();
    if (!mark || mark == last_)
        return false;
    last_ = mark;
    lastTime_ = clockMs();
    return true;
}

std::optional<double> Watcher::await(int source, double until) {
    const InTime inTime;
    auto next = std::chrono::steady_clock::now();
    do {
        if (look() && (source == -1 || last_->source == source))
            return lastTime_;
        next += std::chrono::microseconds(250);
        std::this_thread::sleep_until(next);
    } while (clockMs() < until);
    return std::nullopt;
}

} // namespace bench
