// Tells when the files change that decoder-mqtt reports about, through inotify.
//
// These are the parameter files, what the supervisor and the players publish about themselves and the sources, and the
// on-screen texts. Only names that count are noticed, so a statistic that is written every three seconds wakes the
// process but is not read. One thread.
#pragma once

#include <map>
#include <string>

namespace mqtt {

class FolderWatch {
public:
    struct Changes {
        bool state = false;         // anything about the decoder
        bool sources = false;       // the list of sources, or what is known about one
        bool configuration = false; // parameter file 0
    };

    FolderWatch();
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    // Readable when something may have changed; -1 when the kernel can't watch. Then look from time to time.
    int fd() const { return fd_; }

    // What has changed since the last call. Notices folders that have appeared, too.
    Changes take();

private:
    enum class Kind { Parameters, Run, Display, Sources, Source };

    void watch(Kind kind, const std::string& folder);
    void watchAll();
    void note(Kind kind, const std::string& name, Changes& changes);

    int fd_ = -1;
    std::map<int, Kind> watched_; // by inotify's number
};

} // namespace mqtt
