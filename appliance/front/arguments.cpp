#include "appliance/front/arguments.h"

#include "appliance/front/option_letters.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace front {
namespace {

// Reads and closes the descriptor that the front named. Returns its text; "" when there was no front.
std::string storedArguments() {
    const char* number = std::getenv(argumentsVariable);
    if (number == nullptr)
        return "";
    const int fd = std::atoi(number);
    unsetenv(argumentsVariable);
    std::string text;
    std::array<char, 4096> bytes{};
    for (;;) {
        const ssize_t count = read(fd, bytes.data(), bytes.size());
        if (count > 0)
            text.append(bytes.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            break;
    }
    close(fd);
    return text;
}

} // namespace

Arguments::Arguments(int argc, char** argv) : text_(storedArguments()) {
    if (text_.empty())
        pointers_.assign(argv, argv + argc);
    for (char* at = text_.data(); at < text_.data() + text_.size(); at += std::strlen(at) + 1)
        pointers_.push_back(at);
    pointers_.push_back(nullptr);
}

} // namespace front
