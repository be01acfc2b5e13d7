// Notices when the decoder's files change, without asking for them.
//
// It watches the folders of the run directory, the status values of the sources and the configuration with inotify. One
// thread.
#pragma once

#include <map>
#include <string>

namespace panel {

// Which files changed.
struct Touched {
    bool decoder = false;       // what the decoder does: texts, LEDs, published values
    bool sources = false;       // what is known about a source
    bool configuration = false; // parameter file 0, or the copy that is in force

    bool any() const { return decoder || sources || configuration; }
};

class ChangeWatch {
public:
    ChangeWatch(); // of this appliance
    ~ChangeWatch();
    ChangeWatch(const ChangeWatch&) = delete;
    ChangeWatch& operator=(const ChangeWatch&) = delete;

    // Readable when something has changed; -1 when the kernel gave no watch (logged): then only a look helps.
    int fd() const { return fd_; }

    // What has changed since the last call. Never blocks.
    Touched read();

    // Watches folders that have come into being. Cheap; call it from time to time.
    void renew();

private:
    enum class Folder { Run, Display, Sources, Source, Configuration };
    void watch(const std::string& path, Folder folder);
    void watchSources();
    void note(Folder folder, const std::string& name, Touched& touched);

    int fd_;
    std::map<int, Folder> folders_; // by watch descriptor
};

} // namespace panel
