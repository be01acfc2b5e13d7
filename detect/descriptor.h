// Owns a file descriptor. -1 means none; 0 is an ordinary descriptor.
#pragma once

#include <unistd.h>
#include <utility>

namespace detect {

class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (fd_ != -1)
            close(fd_);
    }

    int get() const { return fd_; }
    bool isOpen() const { return fd_ != -1; }

private:
    int fd_;
};

} // namespace detect
