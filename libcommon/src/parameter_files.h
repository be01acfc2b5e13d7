// The two parameter files as they are now: read once, and again when they changed.
#pragma once

#include "libcommon/src/parameter_snapshot.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/stat.h>

namespace local {

// Bigger files are refused without being read.
inline constexpr std::size_t maximumParameterFile = 4 << 20;

bool isParameterFile(int fileId);

// Where a parameter file is: its copy, once readFromSettingsCopies() was called. `fileId` is one.
const std::string& parameterFilePath(int fileId);

// Where the copy of its settings is (settings_copy.h).
const std::string& settingsCopyPath(int fileId);

// From now on this process reads the copies. Called before other threads exist.
void readFromSettingsCopies();
bool readsFromSettingsCopies();

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

// Whether a file that changed and was then read at these times (nanoseconds) would carry another time if it changed
// once more. False for a change just before the reading: the next one may come within the same tick of the clock. True
// for a change in the future: the clock has been set back since.
bool isSettled(std::int64_t changed, std::int64_t read);

// The file's present contents: one stat when they are known already. Never null; a missing file is an empty one. A file
// that can't be read is an empty one, too (logged once per version, as are unreadable lines). Any thread, and between
// fork and exec.
std::shared_ptr<const ParameterSnapshot> currentParameters(int fileId);

// Reads a whole regular file, and reads it again while it changes. False with errno; ENOENT: there is none.
bool readSteadily(const char* path, std::string& text, struct stat& file);

} // namespace local
