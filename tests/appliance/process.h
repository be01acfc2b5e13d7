// A program that a test started: its pid, its end, its output.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace appliance {

using Seconds = std::chrono::duration<double>;

// How long a loaded machine may take for a step that usually takes milliseconds. A test waits that long only when
// something fails.
inline constexpr Seconds patience{30};

// Checks `condition` until it is true or the time is over. Returns its last value.
template<class Condition>
bool eventually(Condition condition, Seconds limit = patience);

// A running program. The destructor kills it by its pid.
class Process {
public:
    // Starts `arguments[0]`. Its output is appended to `outputFile`; it has no input, an empty signal mask and the
    // test's environment with the changes of `environment`. It is killed when the test ends.
    Process(const std::vector<std::string>& arguments, const std::map<std::string, std::string>& environment,
            const std::string& outputFile);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    pid_t pid() const { return pid_; }
    bool running(); // reaps the process when it has ended
    void signal(int number) const;

    // The wait status; std::nullopt when it did not end in time.
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

// Runs a program to its end. After `limit` it is killed.
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
