#include "appliance/bug_report/command.h"
#include "appliance/bug_report/processes.h"
#include "appliance/bug_report/sections.h"
#include "appliance/journal/journal.h"

#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <unistd.h>

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

// As a word of a shell.
std::string quoted(const std::string& text) {
    std::string word = "'";
    for (const char c : text)
        word += c == '\'' ? "'\\''" : std::string(1, c);
    return word + "'";
}

// The program that belongs to this installation, or the one in PATH.
std::string replayProgram() {
    std::error_code unknown;
    const auto here = std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path();
    const auto ours = (here / REPLAY_FROM_HERE).lexically_normal();
    return std::filesystem::exists(ours, unknown) ? ours.string() : "skelmor-replay";
}

// What the supervisor got from the world, as a text that skelmor-replay reads.
std::string recording() {
    constexpr std::size_t mostOfRecording = std::size_t{64} * 1024 * 1024;
    const std::string file = libcommon::appliancePath("/run/decoder/recording");
    if (access(file.c_str(), R_OK) != 0)
        throw std::runtime_error(file + ": " + std::strerror(errno));
    return outputOf(quoted(replayProgram()) + " --print " + quoted(file) + " 2>&1", mostOfRecording);
}

} // namespace

std::vector<Part> logParts() {
    std::vector<Part> parts = logFiles();
    parts.push_back(partOf("system-log.txt", systemLog));
    parts.push_back(partOf("crashes.txt", crashes));
    parts.push_back(partOf("recording.txt", recording));
    return parts;
}

} // namespace bug_report
