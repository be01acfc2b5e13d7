#include "libcommon/src/parameter_write.h"

#include "libcommon/src/files.h"
#include "libcommon/src/parameter_edit.h"
#include "libcommon/src/parameter_files.h"
#include "libcommon/src/parameter_lock.h"
#include "libcommon/src/settings_copy.h"

#include <libcommon/log.h>
#include <libcommon/parameter_lines.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace local {

namespace {

constexpr int attempts = 5;

enum class Outcome { done, failed, overtaken };

// A write under way: which file, and its contents when it was read.
struct Job {
    int fileId;
    std::string path; // the target of a link
    bool exists = false;
    struct stat before {};
    std::string text;
};

bool fails(const Job& job, const char* what) {
    const int error = errno;
    logmsg(3, "Failed to write %s: %s. (errno=%d %s)", job.path.c_str(), what, error, std::strerror(error));
    return false;
}

// A link stays where it is; the file behind it is replaced.
bool resolve(Job& job) {
    job.path = parameterFilePath(job.fileId);
    struct stat file {};
    if (lstat(job.path.c_str(), &file) != 0 || !S_ISLNK(file.st_mode))
        return true;
    char* target = realpath(job.path.c_str(), nullptr);
    if (target == nullptr)
        return fails(job, "it is a link to nothing that can be written");
    job.path = target;
    std::free(target);
    return true;
}

bool readPresent(Job& job) {
    job.text.clear();
    job.exists = readSteadily(job.path.c_str(), job.text, job.before);
    if (!job.exists && errno == ENOENT)
        return true;
    if (!job.exists)
        return fails(job, "it can't be read");
    // Root does not change a read-only file either, although the kernel would allow it.
    errno = EACCES;
    if ((job.before.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 ||
        faccessat(AT_FDCWD, job.path.c_str(), W_OK, AT_EACCESS) != 0)
        return fails(job, "it is read-only");
    return true;
}

// True if the file has that group afterwards. In a folder that passes its group on (setgid) a new file has it at once, and
// nothing needs to be changed. In a name space of users nothing could be: the group has no number there.
bool giveGroup(int fd, gid_t group) {
    struct stat file {};
    return fstat(fd, &file) == 0 && (file.st_gid == group || fchown(fd, static_cast<uid_t>(-1), group) == 0);
}

// Gives the new version the mode and the owner of the old one. If the owner can't be kept, the group must be kept: the
// appliance's other processes read the file by its group.
bool keepRights(int fd, const struct stat& before) {
    struct stat file {};
    const bool kept = fstat(fd, &file) == 0 && file.st_uid == before.st_uid && file.st_gid == before.st_gid;
    if (!kept && fchown(fd, before.st_uid, before.st_gid) != 0 && !giveGroup(fd, before.st_gid))
        return false;
    return fchmod(fd, before.st_mode & 07777) == 0;
}

// A new file is for the group of its folder, so that one made by root can be read and written by the appliance's user.
// The configuration has passwords: other users may not read it.
bool followFolder(int fd, const Job& job) {
    struct stat folder {};
    if (!statFolderOf(job.path.c_str(), folder))
        return false;
    const bool groupWrites = (folder.st_mode & S_IWGRP) != 0 && giveGroup(fd, folder.st_gid);
    const mode_t others = job.fileId == 0 ? 0 : S_IROTH;
    return fchmod(fd, (groupWrites ? 0660 : 0640) | others) == 0;
}

bool isLater(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

// Two versions that are written within one tick of the kernel's clock would have the same time, and a reader would
// mistake the second for the first.
bool makeLater(int fd, const timespec& before) {
    struct stat file {};
    timespec times[2] = {{.tv_sec = 0, .tv_nsec = UTIME_OMIT}, {}};
    clock_gettime(CLOCK_REALTIME, &times[1]);
    if (!isLater(times[1], before)) {
        times[1] = before;
        if (++times[1].tv_nsec == 1'000'000'000)
            times[1] = {.tv_sec = before.tv_sec + 1, .tv_nsec = 0};
    }
    if (futimens(fd, times) != 0 || fstat(fd, &file) != 0)
        return false;
    if (isLater(file.st_mtim, before))
        return true;
    times[1] = {.tv_sec = before.tv_sec + 2, .tv_nsec = 0}; // a file system that keeps whole seconds
    return futimens(fd, times) == 0;
}

void makeFolderDurable(const std::string& path) {
    const std::string folder = path.substr(0, path.rfind('/') + 1);
    const Descriptor fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || fsync(fd.get()) != 0)
        logmsg(3, "A power cut may undo the last change of %s. (errno=%d %s)", path.c_str(), errno,
               std::strerror(errno));
}

// The new version in a file of its own, ready to take the old one's place.
bool prepare(const Job& job, const std::string& temporary, const std::string& text) {
    unlink(temporary.c_str()); // of a writer that was killed; there is one writer at a time
    const Descriptor fd(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fd)
        return fails(job, "no new file can be made beside it");
    if (!writeAll(fd.get(), text.data(), text.size()))
        return fails(job, "its new contents could not be written");
    if (job.exists ? !keepRights(fd.get(), job.before) : !followFolder(fd.get(), job))
        return fails(job, "its group or mode can't be kept");
    if (job.exists && !makeLater(fd.get(), job.before.st_mtim))
        return fails(job, "its time can't be set");
    if (job.fileId == 0 && fsync(fd.get()) != 0)
        return fails(job, "its new contents could not be made durable");
    return true;
}

bool isAsItWasRead(const Job& job) {
    struct stat now {};
    if (stat(job.path.c_str(), &now) != 0)
        return !job.exists && errno == ENOENT;
    return job.exists && stampOf(now) == stampOf(job.before);
}

Outcome replace(const Job& job, const std::string& text) {
    const std::size_t slash = job.path.rfind('/') + 1;
    const std::string temporary = job.path.substr(0, slash) + "." + job.path.substr(slash) + ".new";
    Outcome outcome = Outcome::failed;
    if (prepare(job, temporary, text)) {
        // A user with an editor, which does not use the lock, may have changed the file meanwhile.
        if (!isAsItWasRead(job))
            outcome = Outcome::overtaken;
        else if (rename(temporary.c_str(), job.path.c_str()) == 0)
            outcome = Outcome::done;
        else
            fails(job, "the new file can't take its place");
    }
    if (outcome != Outcome::done)
        unlink(temporary.c_str());
    else if (job.fileId == 0)
        makeFolderDurable(job.path);
    return outcome;
}

Outcome attempt(Job& job, const EditText& edit) {
    if (!readPresent(job))
        return Outcome::failed;
    const std::optional<std::string> text = edit(job.text);
    if (!text)
        return Outcome::failed;
    if (job.exists && *text == job.text)
        return Outcome::done; // spares the flash
    if (text->size() > maximumParameterFile) {
        errno = EFBIG;
        fails(job, "the file would become too long to be read");
        return Outcome::failed;
    }
    return replace(job, *text);
}

// `what`, for the log.
bool rewrite(int fileId, const std::string& what, const EditText& edit) {
    Job job{.fileId = fileId, .path = parameterFilePath(fileId), .before = {}, .text = {}};
    if (readsFromSettingsCopies()) {
        logmsg(3, "Failed to write %s: this process only reads copies of the settings", what.c_str());
        return false;
    }
    const WriteTurn turn(fileId);
    if (!turn) {
        logmsg(3, "Failed to write %s to %s: %s; the value is lost. (errno=%d %s)", what.c_str(),
               job.path.c_str(), turn.reason().c_str(), errno, std::strerror(errno));
        return false;
    }
    if (!resolve(job))
        return false;
    Outcome outcome = Outcome::overtaken;
    for (int i = 0; i < attempts && outcome == Outcome::overtaken; ++i)
        outcome = attempt(job, edit);
    if (outcome == Outcome::overtaken) {
        errno = EBUSY;
        return fails(job, "another program keeps changing it");
    }
    if (outcome == Outcome::done)
        renewSettingsCopy(fileId);
    return outcome == Outcome::done;
}

// Whether a write would change nothing. Needs no lock: other programs' changes come before or after this look. A file
// that can't be read is left to the write, which tells why.
bool isPresent(int fileId, std::string_view name, std::string_view value) {
    return !value.empty() && access(parameterFilePath(fileId).c_str(), R_OK) == 0 &&
           currentParameters(fileId)->value(name) == value;
}

} // namespace

bool writeParameter(int fileId, std::string_view name, std::string_view value) {
    const auto length = static_cast<int>(std::min<std::size_t>(name.size(), 200));
    if (!isParameterFile(fileId)) {
        logmsg(3, "Failed to write \"%.*s\": there is no parameter file %d.", length, name.data(), fileId);
        return false;
    }
    if (const char* reason = whyNotWritable(name, value); reason != nullptr) {
        logmsg(3, "Failed to write \"%.*s\" to %s: %s.", length, name.data(),
               parameterFilePath(fileId).c_str(), reason);
        return false;
    }
    if (isPresent(fileId, name, value))
        return true;
    return rewrite(fileId, '"' + std::string(name.substr(0, 200)) + '"',
                   [&](const std::string& present) -> std::optional<std::string> {
                       std::string text = withParameter(present, name, value);
                       ParameterSnapshot check;
                       parse(text, check);
                       if (check.value(name) == value)
                           return text;
                       logmsg(3, "Failed to write %s: a line would become too long to be read",
                              parameterFilePath(fileId).c_str());
                       return std::nullopt;
                   });
}

bool rewriteParameters(int fileId, const EditText& edit) {
    return isParameterFile(fileId) && rewrite(fileId, "a change", edit);
}

} // namespace local

namespace libcommon {

bool rewriteParameterFile(int fileId,
                          const std::function<std::optional<std::string>(const std::string&)>& edit) {
    return local::rewriteParameters(fileId, edit);
}

} // namespace libcommon
