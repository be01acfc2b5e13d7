// For tests: the appliance root of a test program, a temporary folder.
//
// libcommon reads APPLIANCE_ROOT and LIBCOMMON_LOG once in each process. So all tests that run in one process share one
// root: each empties it before it begins, and it is removed when the process ends.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <unistd.h>

class ProcessRoot {
public:
    static const ProcessRoot& get() {
        static const ProcessRoot root;
        return root;
    }

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path log() const { return path_ / "log"; }

    // The library keeps the log open, so the log is emptied and not removed.
    void empty() const {
        for (const auto& entry : std::filesystem::directory_iterator(path_)) {
            if (entry.path() != log())
                std::filesystem::remove_all(entry.path());
        }
        const std::ofstream emptied(log(), std::ios::trunc);
    }

    ProcessRoot(const ProcessRoot&) = delete;
    ProcessRoot& operator=(const ProcessRoot&) = delete;

private:
    ProcessRoot() {
        char folder[] = "/tmp/root-XXXXXX";
        path_ = mkdtemp(folder);
        setenv("APPLIANCE_ROOT", path_.c_str(), 1);
        setenv("LIBCOMMON_LOG", log().c_str(), 1);
    }
    // A forked child that exits leaves the folder to its parent.
    ~ProcessRoot() {
        std::error_code ignored;
        if (getpid() == owner_)
            std::filesystem::remove_all(path_, ignored);
    }

    pid_t owner_ = getpid();
    std::filesystem::path path_;
};
