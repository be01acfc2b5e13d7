#include "bench/process_cost.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <unistd.h>

namespace bench {
namespace {

// The words of /proc/PID/stat from the state on; empty when there is no such process.
std::vector<std::string> statOf(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::size_t end = text.rfind(')');
    if (end == std::string::npos)
        return {};
    std::istringstream words(text.substr(end + 1));
    return {std::istream_iterator<std::string>(words), {}};
}

pid_t parentOf(pid_t pid) {
    const auto words = statOf(pid);
    return words.size() > 1 ? std::stoi(words[1]) : -1;
}

std::vector<pid_t> allProcesses() {
    std::vector<pid_t> all;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") == std::string::npos)
            all.push_back(std::stoi(name));
    }
    return all;
}

} // namespace

std::vector<pid_t> familyOf(pid_t pid) {
    std::vector<pid_t> family{pid};
    const std::vector<pid_t> all = allProcesses();
    for (std::size_t i = 0; i < family.size(); ++i)
        for (const pid_t other : all)
            if (parentOf(other) == family[i])
                family.push_back(other);
    return family;
}

double cpuSecondsOf(const std::vector<pid_t>& pids) {
    double ticks = 0;
    for (const pid_t pid : pids) {
        const auto words = statOf(pid);
        if (words.size() > 12)
            ticks += std::stod(words[11]) + std::stod(words[12]); // user and system
    }
    return ticks / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double processorMsOf(const std::vector<pid_t>& pids) {
    double sum = 0;
    for (const pid_t pid : pids)
        for (const auto& thread :
             std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
            double nanoseconds = 0;
            std::ifstream(thread.path() / "schedstat") >> nanoseconds;
            sum += nanoseconds / 1e6;
        }
    return sum;
}

double privateMegabytesOf(const std::vector<pid_t>& pids) {
    double kilobytes = 0;
    for (const pid_t pid : pids) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/smaps_rollup");
        for (std::string line; std::getline(file, line);)
            if (line.starts_with("Private_"))
                kilobytes += std::stod(line.substr(line.find(':') + 1));
    }
    return kilobytes / 1024;
}

} // namespace bench
