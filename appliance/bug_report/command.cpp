#include "appliance/bug_report/command.h"

#include <array>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace bug_report {
namespace {

struct ClosePipe {
    void operator()(FILE* it) const { pclose(it); }
};

} // namespace

std::string outputOf(const std::string& command, std::size_t most) {
    const std::unique_ptr<FILE, ClosePipe> pipe(popen(command.c_str(), "re"));
    if (pipe == nullptr)
        throw std::runtime_error("no process for " + command);
    std::string text;
    std::array<char, 4096> bytes{};
    for (std::size_t count = 0;
         text.size() < most && (count = std::fread(bytes.data(), 1, bytes.size(), pipe.get())) > 0;)
        text.append(bytes.data(), count);
    return text;
}

} // namespace bug_report
