#include <libcommon/log.h>

#include "libcommon/src/fork_safe_mutex.h"
#include "libcommon/src/made_once.h"
#include "libcommon/src/signals_held.h"
#include "libcommon/src/utf8.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// The longest line, with its newline; longer ones are cut.
constexpr std::size_t maximumLine = 8192;

enum class Destination { systemLog, standardError, file };

struct Target {
    Destination destination = Destination::systemLog;
    std::string path; // absolute
};

// Where lines go. Read from the environment at the first line, by any thread.
constinit local::MadeOnce<Target> chosenTarget;

// Guards the descriptor of the log file below, and syslog() with its own lock. Holders keep signals blocked.
local::ForkSafeMutex& mutex = *new local::ForkSafeMutex;

// The open log file, -1 while there is none, and its identity when it was opened. Guarded by the mutex.
int logFile = -1;
dev_t logFileDevice = 0;
ino_t logFileInode = 0;

// Whether this thread is writing a line. A handler that finds it set has interrupted that: its own thread has the
// lock and will never give it back. The storage is the thread's from its start, because any other is allocated at
// its first use.
thread_local volatile bool writing __attribute__((tls_model("initial-exec"))) = false;

// Sets `writing` for the life of the object.
struct Writing {
    Writing() { writing = true; }
    ~Writing() { writing = false; }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;
};

const Target& target() {
    return chosenTarget.get([] {
        auto* result = new Target;
        const char* value = std::getenv("LIBCOMMON_LOG");
        if (value == nullptr || *value == '\0')
            return result;
        if (std::strcmp(value, "stderr") == 0) {
            result->destination = Destination::standardError;
            return result;
        }
        result->destination = Destination::file;
        result->path = value;
        char* here = *value == '/' ? nullptr : get_current_dir_name();
        if (here != nullptr) // a later chdir must not move the log
            result->path = std::string(here) + "/" + value;
        std::free(here);
        return result;
    });
}

// "2026-11-21T07:58:01.123456Z skelmor[4711] 6 ". Computed by hand: the C library's conversions take a lock
// that a child between fork and exec might find taken.
int writeHeading(char* line, std::size_t size, int level) {
    using namespace std::chrono;
    const auto now = time_point_cast<microseconds>(system_clock::now());
    const auto today = floor<days>(now);
    const year_month_day date{today};
    const hh_mm_ss time{now - today};
    const auto number = [](auto duration) { return static_cast<long>(duration.count()); };
    return std::snprintf(line, size, "%04d-%02u-%02uT%02ld:%02ld:%02ld.%06ldZ %s[%d] %d ", int{date.year()},
                         unsigned{date.month()}, unsigned{date.day()}, number(time.hours()),
                         number(time.minutes()), number(time.seconds()), number(time.subseconds()),
                         program_invocation_short_name, getpid(), level);
}

void replaceControlCharacters(char* text, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < 0x20 && byte != 0x1b) || byte == 0x7f)
            text[i] = ' ';
        // U+0080 to U+009F, among them a line break.
        if (byte == 0xc2 && i + 1 < length && (static_cast<unsigned char>(text[i + 1]) & 0xe0U) == 0x80U) {
            text[i] = ' ';
            text[i + 1] = ' ';
        }
    }
}

// Formats the text into `line` (`size` bytes) and returns its length, at most size - 1.
std::size_t writeText(char* line, std::size_t size, const char* format, va_list arguments) {
    const int wanted = std::vsnprintf(line, size, format, arguments);
    if (wanted < 0) // an argument can't be formatted; the bare format still says something
        std::snprintf(line, size, "%s", format);
    std::size_t length = wanted < 0 ? std::strlen(line) : static_cast<std::size_t>(wanted);
    if (length >= size)
        length = local::cutLength({line, size - 1}, size - 4); // the last byte may be part of a cut character
    if (length > 0 && line[length - 1] == '\n')
        --length;
    replaceControlCharacters(line, length);
    return length;
}

bool isStillOurs(const struct stat& now) {
    return now.st_dev == logFileDevice && now.st_ino == logFileInode;
}

// Opens the log file when it is not open, was renamed or removed, or when other code closed our descriptor. False when
// there is none to write to.
bool bringLogFile(const char* path) {
    struct stat file {};
    struct stat named {};
    const bool ours = logFile >= 0 && fstat(logFile, &file) == 0 && isStillOurs(file);
    if (ours && stat(path, &named) == 0 && isStillOurs(named))
        return true;
    // Without waiting: a pipe without a reader must not block the appliance.
    const int opened = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0640);
    if (opened < 0)
        return ours;
    // Not one of the descriptors 0 to 2: programs close and replace those.
    const int moved = opened > 2 ? opened : fcntl(opened, F_DUPFD_CLOEXEC, 3);
    if (moved != opened)
        close(opened);
    if (moved < 0 || fstat(moved, &file) != 0)
        return ours;
    if (ours) // the number may belong to other code by now
        close(logFile);
    logFile = moved;
    logFileDevice = file.st_dev;
    logFileInode = file.st_ino;
    return true;
}

bool writeLine(int fd, const char* line, std::size_t length) {
    ssize_t written = 0;
    do {
        written = write(fd, line, length);
    } while (written < 0 && errno == EINTR);
    return written >= 0;
}

// What syslog() does, without its lock.
void sendToSystemLog(int priority, const char* text, std::size_t length) {
    char message[maximumLine + 64];
    const int size = std::snprintf(message, sizeof message, "<%d>%s: %.*s", LOG_USER | priority,
                                   program_invocation_short_name, static_cast<int>(length), text);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0)
        return;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, _PATH_LOG, sizeof _PATH_LOG);
    sendto(fd, message, static_cast<std::size_t>(size), MSG_NOSIGNAL, reinterpret_cast<sockaddr*>(&address),
           sizeof address);
    close(fd);
}

// Without waiting: the program that reads standard error may have been stopped. False when nothing could be written; a
// line that could be written in part only is cut.
bool writeToStandardError(const char* line, std::size_t length) {
    constexpr std::size_t part = 4096; // a pipe that is ready takes so much without waiting
    bool begun = false;
    while (length > 0) {
        pollfd ready{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
        const std::size_t next = std::min(length, part);
        if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0 ||
            !writeLine(STDERR_FILENO, line, next))
            return begun;
        begun = true;
        line += next;
        length -= next;
    }
    return true;
}

bool writeToFile(const char* path, const char* line, std::size_t length) {
    return bringLogFile(path) && writeLine(logFile, line, length);
}

// For a handler of a crash in the middle of a line: no lock, no shared state, no syslog(), which has a lock, too.
void writeDespiteCrash(const Target& to, int priority, const char* line, std::size_t start,
                       std::size_t length) {
    if (to.destination == Destination::standardError && writeToStandardError(line, length + 1))
        return;
    if (to.destination == Destination::file) {
        constexpr int flags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
        const int fd = open(to.path.c_str(), flags, 0640);
        const bool written = fd >= 0 && writeLine(fd, line, length + 1);
        if (fd >= 0)
            close(fd);
        if (written)
            return;
    }
    sendToSystemLog(priority, line + start, length - start);
}

} // namespace

void logmsg(int level, const char* format, ...) {
    const local::ErrnoKept errnoKept;
    const int priority = level < LOG_EMERG || level > LOG_DEBUG ? LOG_ERR : level;
    if (format == nullptr)
        format = "";
    char line[maximumLine];
    const int heading = writeHeading(line, sizeof line - 4, priority);
    const std::size_t start = heading < 0 ? 0 : std::min<std::size_t>(heading, sizeof line - 8);
    va_list arguments;
    va_start(arguments, format);
    std::size_t length = start + writeText(line + start, sizeof line - start, format, arguments);
    va_end(arguments);
    const Target& to = target();

    line[length] = '\n';
    if (writing || mutex.isMine())
        return writeDespiteCrash(to, priority, line, start, length);
    const local::SignalsHeld signalsHeld;
    const Writing nowWriting;
    const std::lock_guard guard(mutex);
    if (to.destination == Destination::standardError && writeToStandardError(line, length + 1))
        return;
    if (to.destination == Destination::file && writeToFile(to.path.c_str(), line, length + 1))
        return;
    syslog(priority, "%.*s", static_cast<int>(length - start), line + start);
}
