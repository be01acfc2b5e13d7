#include "appliance/bug_report/command.h"
#include "appliance/bug_report/processes.h"
#include "appliance/bug_report/sections.h"
#include "appliance/journal/journal.h"

#include <libcommon/paths.h>

#include <filesystem>
#include <stdexcept>

namespace bug_report {
namespace {

constexpr std::size_t mostLines = 5000;
constexpr std::size_t mostBytes = 2 * 1024 * 1024;

std::string systemLog() {
    const std::unique_ptr<Journal> journal = openSystemJournal(programNames());
    if (journal == nullptr)
        throw std::runtime_error("this machine has no system journal, or this user may not read it");
    std::string text;
    for (const JournalLine& line : journal->last(mostLines))
        text += line.time + ' ' + line.program + ' ' + std::to_string(line.level) + ' ' + line.text + '\n';
    if (text.empty())
        throw std::runtime_error(
            "the system journal has no line of the decoder, or this user may not read it");
    return text;
}

// The files in the appliance's own folder of logs. A decoder whose root is "/" logs to the system's journal.
std::vector<Part> logFiles() {
    std::vector<Part> parts;
    std::error_code unknown;
    if (libcommon::applianceRoot().empty())
        return parts;
    for (const auto& entry :
         std::filesystem::directory_iterator(libcommon::appliancePath("/var/log"), unknown)) {
        const std::string path = entry.path().string();
        parts.push_back(
            partOf("log-" + entry.path().filename().string(), [&] { return endOfFile(path, mostBytes); }));
    }
    return parts;
}

// The stacks of the last crashes, as systemd-coredump has kept them. Without it only where the kernel puts core files.
std::string crashes() {
    const std::string pattern = endOfFile("/proc/sys/kernel/core_pattern", mostBytes);
    std::string text = "core_pattern " + pattern;
    if (pattern.find("systemd-coredump") == std::string::npos)
        return text + "Crashes leave no stack here: systemd-coredump is not in use.\n";
    for (const std::string& program : programNames())
        text += outputOf("timeout 20 coredumpctl --no-pager -n 3 info " + program.substr(0, 15) + " 2>&1");
    return text;
}

} // namespace

std::vector<Part> logParts() {
    std::vector<Part> parts = logFiles();
    parts.push_back(partOf("system-log.txt", systemLog));
    parts.push_back(partOf("crashes.txt", crashes));
    return parts;
}

} // namespace bug_report
