#include "appliance/bug_report/part.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace bug_report {
namespace {

// A file of a bug report; closed at the end. It may be anything that has that name: it is never waited for.
class InputFile {
public:
    explicit InputFile(const std::string& path)
        : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
        if (fd_ < 0)
            throw std::runtime_error(path + ": " + std::strerror(errno));
    }
    ~InputFile() { close(fd_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    // Bytes before which the last `most` begin. 0 for files of /proc, which have no size.
    off_t beginOfEnd(std::size_t most) const {
        struct stat info {};
        const bool known = fstat(fd_, &info) == 0 && info.st_size > static_cast<off_t>(most);
        return known ? info.st_size - static_cast<off_t>(most) : 0;
    }

    std::string read(off_t from, std::size_t most) const {
        std::string text;
        char bytes[16 * 1024];
        for (;;) {
            const ssize_t count = pread(fd_, bytes, std::min(sizeof bytes, most - text.size()),
                                        from + static_cast<off_t>(text.size()));
            if (count <= 0)
                return text;
            text.append(bytes, static_cast<std::size_t>(count));
        }
    }

private:
    int fd_;
};

} // namespace

Part partOf(const std::string& name, const std::function<std::string()>& read) {
    try {
        return {name, read()};
    } catch (const std::exception& error) {
        return {name, std::string("Not available: ") + error.what() + '\n'};
    }
}

std::string endOfFile(const std::string& path, std::size_t most) {
    const InputFile file(path);
    const off_t begin = file.beginOfEnd(most);
    std::string text = file.read(begin, most);
    if (begin > 0)
        text.erase(0, text.find('\n') + 1);
    return text;
}

} // namespace bug_report
