// Bringing the status store in line with the configured sources.
#include "libcommon/src/left_files.h"
#include "libcommon/src/parameter_files.h"
#include "libcommon/src/parameter_snapshot.h"
#include "libcommon/src/status_folder.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace local {

namespace {

constexpr std::size_t maximumOwner = 65536 * 3;

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};

std::vector<std::string> entriesOf(const std::string& path) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(path.c_str()));
    if (folder == nullptr) {
        if (errno != ENOENT)
            logmsg(3, "Failed to read %s. (errno=%d %s)", path.c_str(), errno, std::strerror(errno));
        return names;
    }
    while (const dirent* entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    return names;
}

// The source index of a folder's name; -1 for a folder that is not ours.
int indexOf(const std::string& name) {
    if (name.empty() || name.size() > 9 || name.find_first_not_of("0123456789") != std::string::npos)
        return -1;
    const int index = std::stoi(name);
    return std::to_string(index) == name ? index : -1;
}

void dropValues(int index) {
    const std::string folder = statusFolder(index);
    for (const std::string& name : entriesOf(folder))
        if (unlink((folder + name).c_str()) != 0)
            logmsg(3, "Failed to remove %s%s. (errno=%d %s)", folder.c_str(), name.c_str(), errno,
                   std::strerror(errno));
    if (rmdir(folder.c_str()) != 0 && errno != ENOENT)
        logmsg(3, "Failed to remove %s. (errno=%d %s)", folder.c_str(), errno, std::strerror(errno));
}

void syncFolder(int index, const SubGroups& sources) {
    const std::string source = configuredSource(sources, static_cast<std::size_t>(index));
    std::string owner;
    const bool known = readSmallFile(statusOwnerPath(index), maximumOwner, owner);
    if (static_cast<std::size_t>(index) >= sources.size() || (known && owner != source)) {
        dropValues(index);
        return;
    }
    // Values without a recorded source belong to this source from now on.
    if (!known && !replaceSmallFile(statusOwnerPath(index), source))
        logmsg(3, "Failed to write %s. (errno=%d %s)", statusOwnerPath(index).c_str(), errno,
               std::strerror(errno));
}

// A supervisor that was killed or crashed while it wrote has left files here; so may others. Once in a process: with
// thousands of sources there are many folders.
void removeLeftFiles() {
    static bool done = false; // main thread
    if (std::exchange(done, true))
        return;
    for (const char* folder : {"/run/decoder", "/run/decoder/display"})
        removeLeftFilesIn(libcommon::appliancePath(folder));
    for (const std::string& name : entriesOf(statusStore()))
        removeLeftFilesIn(statusStore() + name);
}

} // namespace

} // namespace local

void syncEncoderInfo() {
    using namespace local;
    removeLeftFiles();
    const auto parameters = currentParameters(0);
    if (!parameters->readable) // an unreadable file does not mean that there are no sources
        return;
    const SubGroups sources(std::make_shared<const Sections>(parameters, "Encoder"));
    const LockedFile lock(statusLockPath().c_str());
    if (!lock) {
        logmsg(3,
               "Failed to update the values of the sources: %s; values of sources that changed stay. "
               "(errno=%d %s)",
               lock.reason().c_str(), errno, std::strerror(errno));
        return;
    }
    for (const std::string& name : entriesOf(statusStore()))
        if (const int index = indexOf(name); index >= 0)
            syncFolder(index, sources);
}
