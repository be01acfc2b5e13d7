// An appliance of its own for each test: a temporary root, a log file in it, and children as other processes.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

class ApplianceTest : public testing::Test {
protected:
    ApplianceTest();
    ~ApplianceTest() override;

    // Removes what dead processes left below the root: 0 or -1.
    static int sweep();

    // `path` below the appliance root.
    static std::string file(const std::string& path);
    static std::string parameterFile(int fileId);

    static void write(const std::string& path, std::string_view text); // with the folders above it
    static std::string read(const std::string& path);                  // fails the test where there is none
    static bool exists(const std::string& path);
    static std::vector<std::string> entries(const std::string& folder); // sorted, hidden ones too

    static std::string log();
    static std::size_t logCount(const std::string& text); // lines that have it
    static void clearLog();

    // Runs `act` in a child process and returns what it returns (0 to 99), or 100 and above when it crashed
    // or took longer than half a minute.
    static int inChild(const std::function<int()>& act);

    // Runs `act` in a child that is another user (and group) with the given folders opened to all; root only.
    static int asUser(uid_t user, gid_t group, const std::vector<std::string>& openFolders,
                      const std::function<int()>& act);

    // inChild for several at once; `act` gets the child's number from 0. They begin together.
    static std::vector<int> inChildren(int count, const std::function<int(int)>& act);

    static pid_t start(const std::function<int()>& act);
    static int finish(pid_t child);

    // Waits until the process has the lock file open, which another one holds; false after ten seconds.
    static bool waitsForLock(pid_t child, const std::string& lock);
};

// Tells one process that another one has reached a point.
class Signpost {
public:
    Signpost();
    ~Signpost();
    Signpost(const Signpost&) = delete;
    Signpost& operator=(const Signpost&) = delete;
    void reach() const;
    void await() const;
    bool isReached() const; // does not reset it

private:
    int ends_[2];
};
