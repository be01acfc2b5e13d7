#include <libcommon/settings_copy.h>

#include "libcommon/src/settings_copy.h"

#include "libcommon/src/files.h"
#include "libcommon/src/ini_lines.h"
#include "libcommon/src/parameter_files.h"
#include "libcommon/src/parameter_lock.h"
#include "libcommon/src/parameter_snapshot.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace local {

namespace {

// None of them has a secret. Whatever is not listed is not copied, so that a new parameter is secret until it is put here.
constexpr std::array<std::string_view, 4> copiedSections{"Player", "Sound", "Sound.Info", "Network.TLS"};

constexpr mode_t folderMode = 0770; // every program that writes parameters renews the copies

bool isCopied(std::string_view section) {
    return std::any_of(copiedSections.begin(), copiedSections.end(),
                       [&](std::string_view copied) { return NameEqual{}(copied, section); });
}

// Tells versions of the parameter file apart, so that a player that starts need not read all of it.
std::string stampLine(int fileId) {
    struct stat file {};
    if (stat(parameterFilePath(fileId).c_str(), &file) != 0)
        return "# none\n";
    const FileStamp stamp = stampOf(file);
    return "# " + std::to_string(stamp.inode) + ' ' + std::to_string(stamp.size) + ' ' +
           std::to_string(stamp.modified) + ' ' + std::to_string(stamp.changed) + '\n';
}

std::string copyOf(const ParameterSnapshot& snapshot) {
    std::string text;
    for (const ParameterSnapshot::Section& section : snapshot.sections) {
        if (!isCopied(section.name))
            continue;
        text.append("[").append(section.name).append("]\n");
        for (std::uint32_t at = section.first; at != ParameterSnapshot::none; at = snapshot.values[at].next)
            text.append(snapshot.values[at].key).append(" = ").append(snapshot.values[at].value).append("\n");
    }
    return text;
}

bool isOfThisVersion(int fileId) {
    std::string present;
    return readSmallFile(settingsCopyPath(fileId), maximumParameterFile, present) &&
           present.starts_with(stampLine(fileId));
}

// The caller has the turn to write the parameter file, so that an older copy never replaces a newer one.
bool writeCopy(int fileId) {
    const std::string stamp = stampLine(fileId); // before reading: a later change has another one
    if (replaceSmallFile(settingsCopyPath(fileId), stamp + copyOf(*currentParameters(fileId))))
        return true;
    logmsg(3, "Failed to write %s. (errno=%d %s)", settingsCopyPath(fileId).c_str(), errno,
           std::strerror(errno));
    return false;
}

bool makeFolder(const std::string& path) {
    struct stat there {};
    if (!makeFoldersFor(path.c_str()) || (mkdir(path.c_str(), folderMode) != 0 && errno != EEXIST))
        return false;
    // The bit that passes the group on comes from the folder above.
    if (stat(path.c_str(), &there) == 0 && there.st_uid == geteuid() &&
        (there.st_mode & folderMode) != folderMode)
        chmod(path.c_str(), (there.st_mode & 07777) | folderMode);
    return true;
}

// The turn is only needed when something has changed: players start often, settings change seldom.
bool bringCopy(int fileId) {
    if (isOfThisVersion(fileId))
        return true;
    const WriteTurn turn(fileId);
    if (turn)
        return writeCopy(fileId);
    logmsg(3, "Failed to copy the settings: %s. (errno=%d %s)", turn.reason().c_str(), errno,
           std::strerror(errno));
    return false;
}

} // namespace

void renewSettingsCopy(int fileId) {
    if (access(libcommon::appliancePath(libcommon::settingsFolder).c_str(), F_OK) == 0)
        writeCopy(fileId);
}

} // namespace local

namespace libcommon {

bool readSettingsFromCopies() {
    const std::string folder = appliancePath(settingsFolder);
    if (!local::makeFolder(folder)) {
        logmsg(3, "Failed to make %s. (errno=%d %s)", folder.c_str(), errno, std::strerror(errno));
        return false;
    }
    if (!local::bringCopy(0) || !local::bringCopy(1))
        return false;
    local::readFromSettingsCopies();
    return true;
}

} // namespace libcommon
