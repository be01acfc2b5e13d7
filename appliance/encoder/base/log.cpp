#include "appliance/encoder/base/log.h"

#include <array>
#include <ctime>
#include <string>
#include <unistd.h>

void logLine(std::string_view text) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> time{};
    strftime(time.data(), time.size(), "%H:%M:%S ", &local);
    std::string line = "video-encoder: " + std::string(time.data()) + std::string(text) + "\n";
    // One system call, so that lines of several threads and programs do not mix.
    if (write(STDERR_FILENO, line.data(), line.size()) < 0)
        return; // there is no other place to report it
}
