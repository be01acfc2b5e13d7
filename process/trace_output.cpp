#include "process/trace_output.h"

#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int noDescriptor = -1;

// All process-wide state of this file; any thread and the shutdown handler.
std::atomic<int> nonBlocking{
    noDescriptor};                 // standard output, opened a second time; written by the main thread
std::atomic<bool> isSocket{false}; // a socket can't be opened a second time
std::atomic<unsigned> dropped{0};  // lines since the last one that was written
static_assert(std::atomic<unsigned>::is_always_lock_free);

// A pipe with room takes PIPE_BUF bytes without blocking, unless another writer was faster.
ssize_t writeWhereThereIsRoom(int fd, const char* text, std::size_t length) {
    pollfd output{fd, POLLOUT, 0};
    if (poll(&output, 1, 0) != 1) {
        errno = EAGAIN;
        return -1;
    }
    return write(fd, text, length);
}

ssize_t writePart(const char* text, std::size_t length) {
    if (isSocket)
        return send(STDOUT_FILENO, text, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    const int own = nonBlocking;
    return own == noDescriptor ? writeWhereThereIsRoom(STDOUT_FILENO, text, length)
                               : write(own, text, length);
}

// False when the text could not be written completely at once.
bool writeAtOnce(const char* text, std::size_t length) {
    const int savedErrno = errno;
    while (length > 0) {
        const ssize_t written = writePart(text, std::min<std::size_t>(length, PIPE_BUF));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            break;
        text += written;
        length -= static_cast<std::size_t>(written);
    }
    errno = savedErrno;
    if (length > 0)
        ++dropped;
    return length == 0;
}

// Formats into `line`, or into `longLine` where that is too short and a longer one is allowed.
std::size_t formatLine(std::array<char, PIPE_BUF>& line, std::string* longLine, const char* format,
                       va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(line.data(), line.size(), format, arguments);
    std::size_t result = length < 0 ? 0 : static_cast<std::size_t>(length);
    if (result >= line.size() && longLine != nullptr) {
        longLine->resize(result + 1);
        std::vsnprintf(longLine->data(), longLine->size(), format, again);
        longLine->resize(result);
    }
    va_end(again);
    return result;
}

} // namespace

void openTraceOutput() {
    struct stat output {};
    if (fstat(STDOUT_FILENO, &output) != 0)
        return;
    isSocket = S_ISSOCK(output.st_mode);
    // Writing to a file never waits, and a second descriptor would have a position of its own.
    if (S_ISFIFO(output.st_mode) || S_ISCHR(output.st_mode))
        nonBlocking = open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
}

void printTrace(const char* format, ...) {
    std::array<char, PIPE_BUF> line;
    std::string longLine;
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = formatLine(line, &longLine, format, arguments);
    va_end(arguments);
    if (!writeAtOnce(longLine.empty() ? line.data() : longLine.data(), length))
        return;
    if (const unsigned lost = dropped.exchange(0))
        logmsg(6, "Standard output was not read for a while: %u trace lines were dropped", lost);
}

void printTraceInHandler(const char* format, ...) {
    std::array<char, PIPE_BUF> line;
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = formatLine(line, nullptr, format, arguments);
    va_end(arguments);
    writeAtOnce(line.data(), std::min(length, line.size() - 1));
}

void printError(const char* format, ...) {
    std::array<char, PIPE_BUF> line;
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = formatLine(line, nullptr, format, arguments);
    va_end(arguments);
    writeWhereThereIsRoom(STDERR_FILENO, line.data(), std::min(length, line.size() - 1));
}
