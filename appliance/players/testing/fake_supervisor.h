// Plays the supervisor for players under test: starts them with a barrier each, hears their arrivals,
// releases them, and tells how they ended; in an appliance of the test's own.
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

// What a loaded machine may take for what usually takes milliseconds; waited out only when something fails.
inline constexpr std::chrono::seconds patience{30};

class FakeSupervisor {
public:
    // Makes an appliance root for this process where there is none yet, and an event queue.
    FakeSupervisor();
    ~FakeSupervisor(); // ends the players that still run
    FakeSupervisor(const FakeSupervisor&) = delete;
    FakeSupervisor& operator=(const FakeSupervisor&) = delete;

    static const std::string& root();
    static void setParameters(const std::string& text); // the decoder's parameter file from now on
    static std::string log();                           // all that players logged in this process's appliance

    // Starts a program with these arguments, behind a barrier of its own.
    pid_t start(const std::string& program, std::vector<std::string> arguments);

    // Waits until that player has announced itself at the barrier as often as told; whether it did.
    bool arrived(pid_t pid, int barrier, int times = 1);
    bool hasArrived(pid_t pid, int barrier, int times = 1);

    // Releases them, in this order, from the barrier.
    void release(int barrier, const std::vector<pid_t>& pids);

    // Waits for its end: the exit status, or minus the signal that killed it; nothing when it does not end.
    std::optional<int> end(pid_t pid, std::chrono::milliseconds limit = patience);
    bool running(pid_t pid);

    // Both meetings: the player shows from then on. False when it did not come that far.
    bool letShow(pid_t pid);

    void removeQueue(); // as when the supervisor has gone
    void removeBarrier(pid_t pid);

private:
    void listen();
    void forget(pid_t pid);

    std::mutex lock_;
    std::condition_variable news_;
    std::map<std::pair<int, int>, int> arrivals_; // pid and barrier to how often
    std::map<pid_t, int> barriers_;               // running players and their queues
    bool queueRemoved_ = false;
    std::thread listener_;
};

} // namespace player
