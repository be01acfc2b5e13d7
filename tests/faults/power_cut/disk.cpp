#include "tests/faults/power_cut/disk.h"

#include "tests/appliance/process.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace faults {

namespace fs = std::filesystem;
using appliance::readFile;
using appliance::writeFile;

namespace {

// Only files and folders: no pipe, no socket, no link.
bool look(const std::string& path, struct stat& file) {
    return lstat(path.c_str(), &file) == 0 && (S_ISREG(file.st_mode) || S_ISDIR(file.st_mode));
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ignored; // a folder that is gone has none
    for (fs::directory_iterator entry(folder, ignored), end; entry != end; entry.increment(ignored))
        names.push_back(entry->path().filename());
    return names;
}

void rewrite(const std::string& path, const std::string& text) {
    if (readFile(path) != text)
        writeFile(path, text);
}

} // namespace

const char* nameOf(Loss loss) {
    switch (loss) {
    case Loss::nothing:
        return "nothing is lost";
    case Loss::data:
        return "contents are lost";
    case Loss::half:
        return "half of the contents is lost";
    case Loss::names:
        return "names are lost";
    }
    return "?";
}

Disk::Disk(std::vector<std::string> folders) : folders_(std::move(folders)) {
    for (const std::string& folder : folders_)
        keepFolder(folder, true);
}

Disk::~Disk() {
    for (const auto& [number, content] : durable_)
        close(content.held);
}

Disk::Content& Disk::contentOf(const std::string& path, ino_t number) {
    Content& content = durable_[number];
    if (content.held < 0)
        content.held = open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    return content;
}

void Disk::keepFile(const std::string& path) {
    struct stat file {};
    if (stat(path.c_str(), &file) != 0)
        return;
    Content& content = contentOf(path, file.st_ino);
    content.mode = file.st_mode & 07777;
    content.text = readFile(path);
}

void Disk::keepFolder(const std::string& path, bool below) {
    struct stat folder {};
    if (stat(path.c_str(), &folder) != 0)
        return;
    Content& content = contentOf(path, folder.st_ino);
    content.isFolder = true;
    content.mode = folder.st_mode & 07777;
    Entries entries;
    for (const std::string& name : namesIn(path)) {
        const std::string one = path + '/' + name;
        struct stat file {};
        if (!look(one, file))
            continue;
        entries[name] = file.st_ino;
        if (below)
            S_ISDIR(file.st_mode) ? keepFolder(one, true) : keepFile(one);
    }
    entries_[folder.st_ino] = entries;
}

void Disk::synced(pid_t process, int descriptor) {
    const std::string link = "/proc/" + std::to_string(process) + "/fd/" + std::to_string(descriptor);
    struct stat file {};
    if (stat(link.c_str(), &file) != 0)
        return;
    if (S_ISDIR(file.st_mode))
        keepFolder(link, false);
    else if (S_ISREG(file.st_mode))
        keepFile(link);
}

void Disk::cut(Loss loss) const {
    for (const std::string& folder : folders_) {
        if (loss == Loss::names)
            cutNames(folder);
        else if (loss != Loss::nothing)
            cutContents(folder, loss);
    }
}

void Disk::cutContents(const std::string& folder, Loss loss) const {
    for (const std::string& name : namesIn(folder)) {
        const std::string path = folder + '/' + name;
        struct stat file {};
        if (!look(path, file))
            continue;
        if (S_ISDIR(file.st_mode)) {
            cutContents(path, loss);
            continue;
        }
        const auto found = durable_.find(file.st_ino);
        const std::string durable = found == durable_.end() ? "" : found->second.text;
        const std::string now = readFile(path);
        if (now == durable)
            continue;
        // What was appended is cut; what was written over is lost or cut as a whole.
        const std::size_t kept = now.starts_with(durable) ? durable.size() : 0;
        rewrite(path, loss == Loss::data ? durable : now.substr(0, kept + (now.size() - kept) / 2));
    }
}

void Disk::cutNames(const std::string& folder) const {
    struct stat self {};
    const auto found = stat(folder.c_str(), &self) == 0 ? entries_.find(self.st_ino) : entries_.end();
    const Entries durable = found == entries_.end() ? Entries{} : found->second;
    for (const std::string& name : namesIn(folder)) {
        struct stat file {};
        const auto entry = durable.find(name);
        if (look(folder + '/' + name, file) && (entry == durable.end() || entry->second != file.st_ino)) {
            std::error_code ignored;
            fs::remove_all(folder + '/' + name, ignored);
        }
    }
    for (const auto& [name, number] : durable)
        restore(folder + '/' + name, number);
}

void Disk::restore(const std::string& path, ino_t number) const {
    const auto found = durable_.find(number);
    if (found != durable_.end() && found->second.isFolder) {
        fs::create_directories(path);
        cutNames(path);
    } else {
        rewrite(path, found == durable_.end() ? "" : found->second.text);
    }
    if (found != durable_.end())
        chmod(path.c_str(), found->second.mode);
}

} // namespace faults
