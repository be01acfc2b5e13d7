#include "appliance/mqtt/folder_watch.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>

namespace mqtt {
namespace {

constexpr std::uint32_t ofInterest = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_CREATE | IN_ONLYDIR;
constexpr std::array<std::string_view, 3> statusNames{"ErrorCode", "VideoSourceType", "Model"};

std::string runFolder(const char* name) {
    return libcommon::appliancePath(std::string("/run/decoder") + name);
}

} // namespace

FolderWatch::FolderWatch() : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0) {
        logmsg(3, "The decoder's files can't be watched. (errno=%d %s)", errno, std::strerror(errno));
        return;
    }
    watchAll();
}

FolderWatch::~FolderWatch() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void FolderWatch::watch(Kind kind, const std::string& folder) {
    const int number = inotify_add_watch(fd_, folder.c_str(), ofInterest);
    if (number >= 0) {
        watched_[number] = kind;
    }
}

// The folder of a source appears with its first value, and /run/decoder may be made anew. Watching a folder again
// changes nothing.
void FolderWatch::watchAll() {
    watch(Kind::Parameters, libcommon::appliancePath("/etc/decoder"));
    watch(Kind::Run, runFolder(""));
    watch(Kind::Display, runFolder("/display"));
    const std::string sources = runFolder("/source");
    watch(Kind::Sources, sources);
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(sources.c_str()), closedir);
    while (const dirent* entry = folder ? readdir(folder.get()) : nullptr) {
        if (entry->d_name[0] != '.') {
            watch(Kind::Source, sources + '/' + entry->d_name);
        }
    }
}

FolderWatch::Changes FolderWatch::take() {
    Changes changes;
    bool foldersChanged = false;
    alignas(inotify_event) std::array<char, 16384> buffer{};
    ssize_t length = 0;
    while ((length = read(fd_, buffer.data(), buffer.size())) > 0) {
        for (std::size_t at = 0; at < static_cast<std::size_t>(length);) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += sizeof(inotify_event) + event->len;
            if ((event->mask & IN_Q_OVERFLOW) != 0) {
                changes = {.state = true, .sources = true, .configuration = true};
            }
            if ((event->mask & IN_IGNORED) != 0) {
                watched_.erase(event->wd);
            }
            foldersChanged = foldersChanged || (event->mask & (IN_ISDIR | IN_IGNORED)) != 0;
            const auto found = watched_.find(event->wd);
            if (found != watched_.end() && event->len > 0) {
                note(found->second, event->name, changes);
            }
        }
    }
    if (foldersChanged) {
        watchAll();
        changes.state = changes.sources = true; // files may have been in the folder before it was watched
    }
    return changes;
}

void FolderWatch::note(Kind kind, const std::string& name, Changes& changes) {
    switch (kind) {
    case Kind::Parameters:
        if (name == "decoder.conf") {
            changes = {.state = true, .sources = true, .configuration = true};
        }
        return;
    case Kind::Run:
        changes.state =
            changes.state || name == "info.conf" || name == "connected.conf" || name == "events.id";
        changes.sources = changes.sources || name == "connected.conf";
        return;
    case Kind::Display:
        changes.state = changes.state || name.starts_with("line") || name == "led2";
        return;
    case Kind::Sources:
        changes.sources = true;
        return;
    case Kind::Source:
        if (std::ranges::find(statusNames, name) != statusNames.end()) {
            changes.state = changes.sources = true;
        }
        return;
    }
}

} // namespace mqtt
