// A program that a test started: its pid, its end, what it said.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace appliance {

using Seconds = std::chrono::duration<double>;

// Time that a loaded machine may take for what usually takes milliseconds. Never slept through: only waited
// out when something fails.
inline constexpr Seconds patience{30};

// Asks `condition` again and again until it is true or the time is over; its last answer.
template<class Condition>
bool eventually(Condition condition, Seconds limit = patience);

// A running program. Ends it, by its pid, when it is destroyed.
class Process {
public:
    // Starts `arguments[0]` with its output in `outputFile` (appended to), no input, an empty signal mask and
    // the test's environment changed by `environment`. It dies with the test.
    Process(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
            const std::string& outputFile);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    bool running(); // reaps it when it has ended
    void signal(int number) const;

    // The wait status; nothing when it did not end in time.
    std::optional<int> waitForEnd(Seconds limit = patience);

private:
    pid_t pid_ = -1;
    std::optional<int> status_;
};

struct Finished {
    int status = -1; // exit status, -1 when it was killed
    std::string output;
    std::string errors;
};

// Runs a program to its end, which is forced after `limit`.
Finished runToEnd(const std::vector<std::string>& arguments,
                  const std::map<std::string, std::string>& environment, Seconds limit = patience);

void pause(std::chrono::milliseconds time);

std::string readFile(const std::string& path); // "" when it can't be read
void writeFile(const std::string& path, const std::string& text);

template<class Condition>
bool eventually(Condition condition, Seconds limit) {
    const auto until = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= until) {
            return condition();
        }
        pause(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace appliance
