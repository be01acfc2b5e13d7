// A supervisor for tests of the players: starts each with a barrier, receives its announcements, releases it,
// and returns its exit status. It makes a temporary appliance root.
#pragma once

#include <libcommon/events.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <sys/types.h>
#include <thread>
#include <utility>
#include <vector>

namespace player {

// A limit that is long enough on a loaded machine, too. Only a failing test waits that long.
inline constexpr std::chrono::seconds patience{30};

class FakeSupervisor {
public:
    // Makes an event queue and, the first time in this process, an appliance root.
    FakeSupervisor();
    ~FakeSupervisor(); // ends the players that still run
    FakeSupervisor(const FakeSupervisor&) = delete;
    FakeSupervisor& operator=(const FakeSupervisor&) = delete;

    static const std::string& root();
    static void setParameters(const std::string& text); // replaces the decoder's parameter file
    static std::string log();                           // everything that players logged in this process

    // Starts a program with these arguments and a barrier.
    pid_t start(const std::string& program, std::vector<std::string> arguments);

    // Waits until the player has announced itself at the barrier that many times. False when the time is over.
    bool arrived(pid_t pid, int barrier, int times = 1);
    bool hasArrived(pid_t pid, int barrier, int times = 1);

    // Releases the players from the barrier, in this order.
    void release(int barrier, const std::vector<pid_t>& pids);

    // Waits for the player's end: its exit status, or minus the signal that killed it; nothing when it does not
    // end in time.
    std::optional<int> end(pid_t pid, std::chrono::milliseconds limit = patience);
    bool running(pid_t pid);

    // Meets the player at both barriers, so that it shows. False when it does not announce itself.
    bool letShow(pid_t pid);

    void removeQueue(); // as if the supervisor had ended
    void removeBarrier(pid_t pid);

private:
    void listen();
    void forget(pid_t pid);

    std::mutex lock_;
    std::condition_variable arrived_;
    std::map<std::pair<int, int>, int> arrivals_; // pid and barrier: number of announcements
    std::map<pid_t, int> barriers_;               // running players and their queues
    bool queueRemoved_ = false;
    std::thread listener_;
};

} // namespace player
