// The two parameter files as they are now: read once, and again when they changed.
#pragma once

#include "libcommon/src/parameter_snapshot.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/stat.h>

namespace local {

// Bigger files are refused, unread.
inline constexpr std::size_t maximumParameterFile = 4 << 20;

bool isParameterFile(int fileId);

// Where a parameter file is. `fileId` is one.
const std::string& parameterFilePath(int fileId);

// Tells two versions of a file apart. Every writer of ours gives its version a later modification time
// than the one before, because the kernel's clock ticks too rarely to do so.
struct FileStamp {
    int error = 0; // why there is no file, 0 when there is one
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0; // nanoseconds
    std::int64_t changed = 0;
    bool operator==(const FileStamp&) const = default;
};
FileStamp stampOf(const struct stat& file);

// Whether a file that changed and was then read at these times (nanoseconds) would carry another time if it
// changed once more. A change just before the reading says no: the next one may come within the same tick of
// the clock. A change in the future says yes: the clock was set back since.
bool isSettled(std::int64_t changed, std::int64_t read);

// The file's present contents: one stat when they are known already. Never null; a missing file is an empty
// one, and so is one that can't be read (logged once per version, as are its unreadable lines). Any thread,
// and between fork and exec.
std::shared_ptr<const ParameterSnapshot> currentParameters(int fileId);

// Reads a regular file whole, and again while it changes. False with errno; ENOENT: there is none.
bool readSteadily(const char* path, std::string& text, struct stat& file);

} // namespace local
