// A supervisor with two sources and players that show nothing, in a temporary appliance root: small and quick, so that
// it can be started thousands of times. Its encoders are threads of this process. One thread.
//
// Make it in a process with queues of its own (appliance::isolate()): then leftovers() sees whatever stays behind.
#pragma once

#include "tests/support/scripted_server.h"

#include <map>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

namespace faults {

// Whether programs can be traced here, and processes can have queues of their own. Does not change this process.
bool canRunHere();

class SmallDecoder {
public:
    SmallDecoder();
    ~SmallDecoder(); // removes the root; kills what runs below it
    SmallDecoder(const SmallDecoder&) = delete;
    SmallDecoder& operator=(const SmallDecoder&) = delete;

    const std::string& root() const { return root_; }
    std::string file(const std::string& path) const { return root_ + path; }
    std::string parameterFile() const { return file("/etc/decoder/decoder.conf"); }
    std::string logFile() const { return file("/var/log/decoder.log"); }
    std::string output() const { return file("/var/log/output"); }

    // To start the supervisor with: its command and the changes of the environment.
    std::vector<std::string> command() const;
    std::map<std::string, std::string> environment() const;

    // ---- Looking.

    std::string log() const;
    // The state that was entered last, as in the log's lines about transitions.
    std::string state() const;
    // It plays this source and nothing is under way, or comes to that within so many seconds.
    bool plays(int source, double seconds) const;
    // The number of the source that info.conf names; -1 for none.
    int currentSource() const;
    // The event queue's identifier; -1 while there is none.
    int queue() const;
    bool send(int event, int value1 = 0, int value2 = 0) const;
    void press(char state) const; // the button: '1', or '2' when held
    // Both sources are still in the parameter file.
    bool hasBothSources() const;

    // What the supervisor left behind when it ended. Waits up to three seconds for processes that are ending.
    struct Leftovers {
        std::vector<std::string> processes;
        std::vector<std::string> queues;
        std::vector<std::string> barriers;   // files
        std::vector<std::string> unfinished; // files that somebody was writing
        bool semaphores = false;             // more than the one set that is kept for the next start

        bool none() const;
        std::string text() const;
    };
    Leftovers leftovers() const;

private:
    void makeRoot();
    void writeParameters();

    std::string root_;
    std::vector<std::unique_ptr<scripted::Server>> encoders_;
};

// A supervisor that runs freely: starts it, and when it is destroyed ends it with SIGKILL.
class FreeRun {
public:
    explicit FreeRun(const SmallDecoder& decoder);
    ~FreeRun();
    FreeRun(const FreeRun&) = delete;
    FreeRun& operator=(const FreeRun&) = delete;

    pid_t pid() const { return pid_; }
    bool running();
    // The wait status of its end, or -1 when it did not end in time.
    int end(int signal, double seconds);

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

// Empty when the next start works and cleans up: it plays, plays the other source when asked, ends with SIGINT, and
// leaves nothing behind. Otherwise what went wrong. A barrier's file whose queue was never made stays until a sweep.
std::string nextStartFails(const SmallDecoder& decoder);

} // namespace faults
