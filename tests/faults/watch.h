// What always has to hold while things are broken, looked at from outside about ten times a second.
//
// - A supervisor has at most two players.
// - None of its children stays a zombie for more than two seconds.
// - No player, and nothing else that a decoder starts, outlives its parent (orphans come to this process, which has to
//   be a subreaper, see becomeSubreaper()).
// - The supervisor runs, takes an event within ten seconds, and `decoderctl status` answers.
// - The log has the exit of each player that was started.
//
// The looking thread has its own files and processes only; problems() may be called from any thread.
#pragma once

#include "tests/appliance/appliance.h"
#include "tests/faults/followed_log.h"
#include "tests/faults/processes.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace faults {

// Orphans of this process's descendants become its children from now on.
void becomeSubreaper();

// What one look at the processes finds; without threads and files, for tests.
class ProcessRules {
public:
    // `seconds`: since the last look. `supervisors`: their pids. Returns what does not hold.
    std::vector<std::string> look(const std::vector<ProcessEntry>& all, const std::vector<pid_t>& supervisors,
                                  double seconds);
    double longestZombie() const { return longestZombie_; }
    int mostPlayers() const { return mostPlayers_; }

private:
    using Key = std::pair<pid_t, std::uint64_t>;
    double age(std::map<Key, double>& ages, const ProcessEntry& entry, double seconds) const;

    std::map<Key, double> zombies_; // seconds so far
    std::map<Key, double> orphans_;
    std::set<Key> reported_;
    double longestZombie_ = 0;
    int mostPlayers_ = 0;
};

// Which started players have an exit in the log.
class ExitAccount {
public:
    void readOutput(const std::vector<std::string>& lines); // the supervisor's standard output
    void readLog(const std::vector<std::string>& lines);
    // The players that have no exit in the log and do not run now; call it at rest.
    std::vector<pid_t> missing(const std::vector<pid_t>& running) const;
    std::size_t started() const { return started_; }
    std::size_t signals() const { return signals_; } // exits that are called crashes

private:
    std::set<pid_t> open_;  // started, no exit so far
    std::set<pid_t> ended_; // exits that came before the line about the start
    std::size_t started_ = 0;
    std::size_t signals_ = 0;
};

class Watch {
public:
    explicit Watch(std::vector<appliance::Appliance*> decoders);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    std::vector<std::string> problems(); // new ones since the last call
    // Players without an exit in the log, for each decoder, as text; call it at rest.
    std::vector<std::string> lostExits();
    std::size_t playersStarted();
    double longestZombie();
    int mostPlayers();
    double slowestAnswer(); // of `decoderctl status`, seconds

private:
    struct Decoder {
        appliance::Appliance* appliance;
        FollowedLog log;
        FollowedLog output;
        ExitAccount exits;
        long probes = 0;
    };
    void run();
    void lookAtProcesses(double seconds);
    void readLogs();
    void askStatus(Decoder& decoder);
    void probeEvents(Decoder& decoder);
    void report(const std::string& problem);

    std::vector<Decoder> decoders_;
    ProcessRules rules_;
    std::mutex lock_; // guards what the calls above return
    std::vector<std::string> problems_;
    double slowestAnswer_ = 0;
    std::atomic<bool> over_{false};
    std::thread looker_;
    std::thread asker_;
};

} // namespace faults
