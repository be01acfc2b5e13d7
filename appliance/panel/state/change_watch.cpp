#include "appliance/panel/state/change_watch.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <sys/inotify.h>
#include <unistd.h>

namespace panel {
namespace {

constexpr std::uint32_t interesting =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_CREATE | IN_DELETE_SELF | IN_ONLYDIR;

std::string runFolder() {
    return libcommon::appliancePath("/run/decoder");
}

// Lock files and files that are being written have names of these forms.
bool isPassing(const std::string& name) {
    return name.empty() || name[0] == '.' || name.ends_with(".lock") ||
           name.find(".tmp") != std::string::npos;
}

} // namespace

ChangeWatch::ChangeWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0)
        logmsg(3, "The decoder's files can't be watched. (errno=%d %s)", errno, std::strerror(errno));
    renew();
}

ChangeWatch::~ChangeWatch() {
    if (fd_ >= 0)
        close(fd_);
}

// Watching a folder again gives the same descriptor.
void ChangeWatch::watch(const std::string& path, Folder folder) {
    const int descriptor = inotify_add_watch(fd_, path.c_str(), interesting);
    if (descriptor >= 0)
        folders_[descriptor] = folder;
}

void ChangeWatch::watchSources() {
    const std::string folder = runFolder() + "/source";
    watch(folder, Folder::Sources);
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    while (const dirent* entry = entries == nullptr ? nullptr : readdir(entries.get())) {
        if (entry->d_name[0] != '.')
            watch(folder + '/' + entry->d_name, Folder::Source);
    }
}

void ChangeWatch::renew() {
    if (fd_ < 0)
        return;
    watch(libcommon::appliancePath("/etc/decoder"), Folder::Configuration);
    watch(runFolder(), Folder::Run);
    watch(runFolder() + "/display", Folder::Display);
    watchSources();
}

void ChangeWatch::note(Folder folder, const std::string& name, Touched& touched) {
    switch (folder) {
    case Folder::Run:
        touched.decoder = true;
        touched.configuration = touched.configuration || name == "connected.conf";
        return;
    case Folder::Display:
        touched.decoder = true;
        return;
    case Folder::Sources:
    case Folder::Source:
        touched.sources = true;
        return;
    case Folder::Configuration:
        touched.configuration = touched.configuration || name == "decoder.conf";
        return;
    }
}

Touched ChangeWatch::read() {
    Touched touched;
    bool newFolders = false;
    alignas(inotify_event) char bytes[16 * 1024];
    for (;;) {
        const ssize_t got = fd_ < 0 ? -1 : ::read(fd_, bytes, sizeof bytes);
        if (got <= 0)
            break;
        for (ssize_t at = 0; at < got;) {
            inotify_event event; // NOLINT(cppcoreguidelines-pro-type-member-init): copied
            std::memcpy(&event, bytes + at, sizeof event);
            const char* text = bytes + at + sizeof event;
            const std::string name = event.len == 0 ? "" : text;
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & IN_Q_OVERFLOW) != 0)
                touched = {.decoder = true, .sources = true, .configuration = true};
            newFolders = newFolders || (event.mask & (IN_ISDIR | IN_Q_OVERFLOW)) != 0;
            if ((event.mask & IN_IGNORED) != 0) {
                folders_.erase(event.wd);
                continue;
            }
            const auto folder = folders_.find(event.wd);
            const bool onlyCreated = (event.mask & IN_CREATE) != 0 && (event.mask & IN_ISDIR) == 0;
            if (folder != folders_.end() && !onlyCreated && !isPassing(name))
                note(folder->second, name, touched);
        }
    }
    if (newFolders)
        renew();
    return touched;
}

} // namespace panel
