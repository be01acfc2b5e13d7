#include "libcommon/src/parameter_files.h"

#include "libcommon/src/files.h"
#include "libcommon/src/fork_safe_mutex.h"
#include "libcommon/src/made_once.h"

#include <libcommon/log.h>
#include <libcommon/paths.h>
#include <libcommon/settings_copy.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <unistd.h>

namespace local {

namespace {

// The clock that stamps files ticks every 1 to 10 ms on many kernels.
constexpr std::int64_t clockTick = 50'000'000;

constexpr int steadyReads = 5;

struct Version {
    std::shared_ptr<const ParameterSnapshot> snapshot;
    FileStamp stamp;
    bool settled = false; // false: read again at the next access, whatever the stamp says
};

// The version of each file that was read last, and the stamp and error of the last complaint.
// Written and read by any thread under the mutex, which is held for a few instructions only.
struct Known {
    Version version;
    FileStamp complainedStamp{.error = -1};
    int complainedError = 0;
};
ForkSafeMutex& mutex = *new ForkSafeMutex;
std::array<Known, 2>& known = *new std::array<Known, 2>;

// Made by the first access of any thread.
constinit MadeOnce<std::array<std::string, 2>> paths;
constinit MadeOnce<std::array<std::string, 2>> copyPaths;

// Whether parameters are read from the copies of the settings. Written once by readFromSettingsCopies(), before other
// threads exist.
bool fromCopies = false;

std::int64_t nanoseconds(const timespec& time) {
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampAt(const char* path) {
    struct stat file {};
    return stat(path, &file) == 0 ? stampOf(file) : FileStamp{.error = errno};
}

bool isLink(const char* path) {
    struct stat file {};
    return lstat(path, &file) == 0 && S_ISLNK(file.st_mode);
}

std::string reasonOf(int error, const char* path) {
    if (error == EFBIG)
        return "it is bigger than 4 MiB";
    if (error == EINVAL)
        return "it is no regular file";
    if (error == ENOENT && isLink(path))
        return "it is a link to nothing";
    return std::strerror(error);
}

void logComplaints(const char* path, int error, const std::vector<Complaint>& complaints) {
    if (error != 0)
        logmsg(2, "%s can't be read: %s (errno=%d)", path, reasonOf(error, path).c_str(), error);
    for (const Complaint& complaint : complaints) {
        if (complaint.line == 0)
            logmsg(2, "%s: %s", path, complaint.reason.c_str());
        else
            logmsg(2, "%s, line %zu can't be read: %s", path, complaint.line, complaint.reason.c_str());
    }
}

// Passing errors of the process, not of the file.
bool isPassing(int error) {
    return error == EMFILE || error == ENFILE || error == ENOMEM || error == EAGAIN;
}

std::shared_ptr<const ParameterSnapshot> readVersion(int fileId, const FileStamp& expected) {
    const char* path = parameterFilePath(fileId).c_str();
    timespec now{};
    clock_gettime(CLOCK_REALTIME_COARSE, &now);

    auto snapshot = std::make_shared<ParameterSnapshot>();
    Version version{.snapshot = snapshot, .stamp = expected};
    std::vector<Complaint> complaints;
    std::string text;
    struct stat file {};
    int error = 0;
    if (readSteadily(path, text, file)) {
        complaints = parse(std::move(text), *snapshot);
        version.stamp = stampOf(file);
        version.settled = isSettled(version.stamp.changed, nanoseconds(now));
    } else {
        error = errno;
        snapshot->readable = error == ENOENT && !isLink(path);
        // A missing file is known by its stamp. Other errors may end without a change of the stamp.
        version.settled = error == ENOENT && expected.error == ENOENT;
        if (snapshot->readable)
            error = 0;
    }

    std::shared_ptr<const ParameterSnapshot> result = snapshot;
    bool complainNow = false;
    {
        const std::lock_guard guard(mutex);
        Known& here = known[fileId];
        if (isPassing(error) && here.version.snapshot != nullptr) {
            result = here.version.snapshot;
        } else {
            here.version = version;
        }
        complainNow = here.complainedStamp != version.stamp || here.complainedError != error;
        here.complainedStamp = version.stamp;
        here.complainedError = error;
    }
    if (complainNow)
        logComplaints(path, error, complaints);
    return result;
}

} // namespace

bool isParameterFile(int fileId) {
    return fileId == 0 || fileId == 1;
}

const std::string& settingsCopyPath(int fileId) {
    return copyPaths
        .get([] {
            const std::string folder = libcommon::appliancePath(libcommon::settingsFolder);
            return new std::array<std::string, 2>{folder + "/decoder.conf", folder + "/info.conf"};
        })
        .at(fileId);
}

void readFromSettingsCopies() {
    fromCopies = true;
}

bool readsFromSettingsCopies() {
    return fromCopies;
}

const std::string& parameterFilePath(int fileId) {
    if (fromCopies)
        return settingsCopyPath(fileId);
    return paths
        .get([] {
            return new std::array<std::string, 2>{libcommon::appliancePath("/etc/decoder/decoder.conf"),
                                                  libcommon::appliancePath("/run/decoder/info.conf")};
        })
        .at(fileId);
}

bool isSettled(std::int64_t changed, std::int64_t read) {
    return read < changed || read - changed > clockTick;
}

FileStamp stampOf(const struct stat& file) {
    return {.error = 0,
            .device = file.st_dev,
            .inode = file.st_ino,
            .size = file.st_size,
            .modified = nanoseconds(file.st_mtim),
            .changed = nanoseconds(file.st_ctim)};
}

std::shared_ptr<const ParameterSnapshot> currentParameters(int fileId) {
    if (!isParameterFile(fileId))
        return std::make_shared<ParameterSnapshot>();
    const FileStamp now = stampAt(parameterFilePath(fileId).c_str());
    {
        const std::lock_guard guard(mutex);
        const Version& version = known[fileId].version;
        if (version.snapshot != nullptr && version.settled && version.stamp == now)
            return version.snapshot;
    }
    return readVersion(fileId, now);
}

bool readSteadily(const char* path, std::string& text, struct stat& file) {
    for (int round = 1;; ++round) {
        const Descriptor fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
        struct stat before {};
        if (!fd || fstat(fd.get(), &before) != 0 || !readAll(fd.get(), maximumParameterFile, text) ||
            fstat(fd.get(), &file) != 0)
            return false;
        // An editor is writing into the file; the next access reads the final contents.
        if (stampOf(before) == stampOf(file) || round == steadyReads)
            return true;
    }
}

} // namespace local
