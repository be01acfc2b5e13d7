#include "appliance/panel/api/machine_figures.h"

#include <libcommon/paths.h>

#include <fstream>
#include <sstream>
#include <sys/msg.h>
#include <unistd.h>

namespace panel {
namespace {

std::string contentOf(const std::string& path) {
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The sum of the lines "Private_...: N kB" of /proc/PID/smaps_rollup.
std::optional<double> privateBytes(const std::string& folder) {
    std::istringstream lines(contentOf(folder + "/smaps_rollup"));
    std::optional<double> bytes;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("Private_"))
            bytes = bytes.value_or(0) + std::strtod(line.c_str() + line.find(':') + 1, nullptr) * 1024;
    }
    return bytes;
}

// Fields 14 and 15 of /proc/PID/stat. The name before them may have blanks and brackets.
double cpuSeconds(const std::string& stat) {
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field)
        fields >> skipped;
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

} // namespace

std::optional<ProcessFigures> processFigures(int pid) {
    const std::string folder = "/proc/" + std::to_string(pid);
    const std::string stat = pid > 0 ? contentOf(folder + "/stat") : "";
    if (stat.empty())
        return std::nullopt;
    ProcessFigures figures;
    double pages = 0;
    std::istringstream(contentOf(folder + "/statm")) >> pages >> pages;
    figures.residentBytes = pages * static_cast<double>(sysconf(_SC_PAGESIZE));
    figures.privateBytes = privateBytes(folder);
    figures.cpuSeconds = cpuSeconds(stat);
    return figures;
}

std::optional<QueueFigures> eventQueueFigures() {
    std::ifstream record(libcommon::appliancePath("/run/decoder/events.id"));
    int id = -1;
    msqid_ds queue{};
    if (!(record >> id) || msgctl(id, IPC_STAT, &queue) != 0)
        return std::nullopt;
    return QueueFigures{static_cast<double>(queue.msg_qnum), static_cast<double>(queue.__msg_cbytes),
                        static_cast<double>(queue.msg_qbytes)};
}

} // namespace panel
