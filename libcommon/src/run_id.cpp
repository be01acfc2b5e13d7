#include "libcommon/src/run_id.h"

#include "libcommon/src/bounded_lock.h"
#include "libcommon/src/files.h"
#include "libcommon/src/run_path.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <unistd.h>
#include <utility>

namespace local {

namespace {

struct Path {
    char text[PATH_MAX];
    bool fits;

    Path(const char* prefix, const char* name, const char* suffix)
        : fits(appliancePathInto(text, sizeof text, {"/run/decoder/", prefix, name, suffix})) {}
};

// Takes a number and the character behind it off the front of the text.
template<class Number>
bool take(std::string_view& text, Number& number, char behind) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end == text.data() + text.size() || *end != behind)
        return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()) + 1);
    return true;
}

template<class Number>
char* put(char* at, Number number, char behind) {
    at = std::to_chars(at, at + 24, number).ptr;
    *at = behind;
    return at + 1;
}

} // namespace

int openRunId(const char* name) {
    const Path path("", name, ".id");
    return path.fits ? open(path.text, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK) : -1;
}

bool readRunId(int fd, RunId& record) {
    char text[96];
    const ssize_t length = pread(fd, text, sizeof text, 0);
    std::string_view rest(text, length < 0 ? 0 : static_cast<std::size_t>(length));
    if (take(rest, record.id, ' ') && take(rest, record.pid, ' ') && take(rest, record.stamp, '\n') &&
        rest.empty() && record.id >= 0)
        return true;
    errno = ENOENT;
    return false;
}

bool readRunId(const char* name, RunId& record) {
    const Descriptor fd(openRunId(name));
    return fd && readRunId(fd.get(), record);
}

bool writeRunId(const char* name, const RunId& record) {
    const Path path("", name, ".id");
    const Path temporary(".", name, ".id.new"); // one writer at a time: it holds the lock
    if (!path.fits || !temporary.fits)
        return false;
    char text[96];
    char* end = put(text, record.id, ' ');
    end = put(end, record.pid, ' ');
    end = put(end, record.stamp, '\n');
    unlink(temporary.text);
    // Read by the appliance's user and group alone: who can open it can hold up those who send.
    const Descriptor fd(open(temporary.text, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0640));
    return fd && writeAll(fd.get(), text, static_cast<std::size_t>(end - text)) &&
           rename(temporary.text, path.text) == 0;
}

void removeRunId(const char* name) {
    const Path path("", name, ".id");
    if (path.fits)
        unlink(path.text);
}

RunIdLock::RunIdLock(const char* name) {
    const Path path(".", name, ".lock");
    fd_ = path.fits ? openLockFile(path.text) : -1;
    if (fd_ < 0 || lockWithin(fd_, LOCK_EX, lockPatience(), SignalsInWait::kept))
        return;
    const ErrnoKept errnoKept;
    close(std::exchange(fd_, -1));
}

RunIdLock::~RunIdLock() {
    const ErrnoKept errnoKept;
    if (fd_ < 0)
        return;
    flock(fd_, LOCK_UN); // explicitly: a child that was forked meanwhile has the same lock open
    close(fd_);
}

} // namespace local
