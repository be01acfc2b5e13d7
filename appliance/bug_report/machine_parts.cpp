#include "appliance/bug_report/command.h"
#include "appliance/bug_report/processes.h"
#include "appliance/bug_report/sections.h"

#include <libcommon/paths.h>

#include <ctime>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>

namespace bug_report {
namespace {

constexpr std::size_t mostBytes = 256 * 1024;
constexpr std::size_t mostFiles = 2000;

std::string timeText(std::time_t time) {
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::ostringstream text;
    text << std::put_time(&parts, "%Y-%m-%dT%H:%M:%SZ");
    return text.str();
}

// The version of each package that this program or another one of the decoder uses, as the package manager knows it.
std::string packageVersions() {
    const std::string versions =
        outputOf("timeout 20 dpkg-query -W -f '${Package} ${Version} ${db:Status-Status}\\n' 'skelmor*' "
                 "libc6 libcurl4 "
                 "libssl3 libgstreamer1.0-0 gstreamer1.0-libav libavcodec59 libavcodec-extra59 libsoup-3.0-0 "
                 "libmosquitto1 libsdl2-2.0-0 libdrm2 systemd 2>/dev/null");
    return versions.empty() ? "no list of packages\n" : versions;
}

std::string versions() {
    utsname system{};
    uname(&system);
    std::ostringstream text;
    text << HOUSE_VERSION << "\nmade " << timeText(std::time(nullptr)) << '\n'
         << system.sysname << ' ' << system.release << ' ' << system.machine << '\n'
         << endOfFile("/etc/os-release", mostBytes) << packageVersions();
    return text.str();
}

std::string processes() {
    return processTable("/proc");
}

std::string queues() {
    std::string text;
    for (const char* kind : {"msg", "sem", "shm"})
        text += std::string("== ") + kind + '\n' + endOfFile(std::string("/proc/sysvipc/") + kind, mostBytes);
    return text;
}

std::string sizeOf(const std::filesystem::path& folder) {
    struct statvfs disk {};
    if (statvfs(folder.c_str(), &disk) != 0)
        return folder.string() + ": not there\n";
    const auto mib = [&](fsblkcnt_t blocks) { return std::to_string(blocks * disk.f_frsize / 1024 / 1024); };
    return folder.string() + ": " + mib(disk.f_bavail) + " of " + mib(disk.f_blocks) + " MiB free" +
           ((disk.f_flag & ST_RDONLY) != 0 ? ", read-only\n" : "\n");
}

std::string memoryAndDisks() {
    std::string text = endOfFile("/proc/meminfo", mostBytes) + endOfFile("/proc/loadavg", mostBytes) +
                       endOfFile("/proc/uptime", mostBytes);
    for (const char* folder : {"/", "/run", "/etc", "/var/log", "/dev/shm"})
        text += sizeOf(libcommon::appliancePath(folder));
    return text;
}

// Names, rights, sizes and times of the files below the folder; not what they hold.
void listFolder(std::ostream& text, const std::filesystem::path& folder, std::size_t& left) {
    std::error_code unknown;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(
             folder, std::filesystem::directory_options::skip_permission_denied, unknown)) {
        struct stat info {};
        if (left == 0)
            return;
        if (lstat(entry.path().c_str(), &info) != 0)
            continue;
        --left;
        text << std::oct << std::setw(7) << info.st_mode << std::dec << ' ' << std::setw(6) << info.st_uid
             << ' ' << std::setw(9) << info.st_size << ' ' << timeText(info.st_mtime) << ' '
             << entry.path().string() << '\n';
    }
}

std::string files() {
    std::ostringstream text;
    std::size_t left = mostFiles;
    for (const char* folder : {"/run/decoder", "/etc/decoder"})
        listFolder(text, libcommon::appliancePath(folder), left);
    return text.str();
}

} // namespace

std::vector<Part> machineParts() {
    return {partOf("versions.txt", versions), partOf("processes.txt", processes),
            partOf("queues.txt", queues), partOf("memory-and-disks.txt", memoryAndDisks),
            partOf("files.txt", files)};
}

} // namespace bug_report
