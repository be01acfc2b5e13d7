// What a disk would have after a power cut: a model of some folders while a traced program writes below them.
//
// The model is that of a strict reading of the rules: the contents of a file are durable after fsync of the file, its
// name after fsync of the folder. All else may be lost, alone or together. File systems keep more than that, and none
// promises to. One thread at a time.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace faults {

enum class Loss {
    nothing, // everything reached the disk
    data,    // names reached the disk, contents that were not synced did not: a new file is empty
    half,    // ... half of them did
    names    // names that were not synced did not either: the old files are there
};
inline constexpr Loss losses[] = {Loss::nothing, Loss::data, Loss::half, Loss::names};
const char* nameOf(Loss loss);

class Disk {
public:
    // All that is below these folders now is durable.
    explicit Disk(std::vector<std::string> folders);
    ~Disk();
    Disk(const Disk&) = delete;
    Disk& operator=(const Disk&) = delete;

    // The process has synced the file or folder behind this descriptor.
    void synced(pid_t process, int descriptor);
    // Changes the files below the folders to what the disk would have now. The program has ended.
    void cut(Loss loss) const;

private:
    struct Content {
        int held = -1; // keeps the file's number from being given to another file
        bool isFolder = false;
        mode_t mode = 0;
        std::string text;
    };
    using Entries = std::map<std::string, ino_t>; // the files and folders of a folder

    void keepFolder(const std::string& path, bool below);
    void keepFile(const std::string& path);
    Content& contentOf(const std::string& path, ino_t number);
    void cutContents(const std::string& folder, Loss loss) const;
    void cutNames(const std::string& folder) const;
    void restore(const std::string& path, ino_t number) const;

    std::vector<std::string> folders_;
    std::map<ino_t, Content> durable_;
    std::map<ino_t, Entries> entries_; // of each durable folder
};

} // namespace faults
