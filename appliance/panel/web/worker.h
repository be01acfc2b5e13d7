// One thread for everything that may take its time: commands to the decoder, files on a slow disk, password hashes.
//
// run() puts a task into the queue; tasks run one after the other. A task returns nothing: it keeps what it found in
// objects that it shares with `done`, which is called on the main loop's thread afterwards. A task throws to fail; `done`
// gets the exception.
#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <memory>

namespace panel {

class Worker {
public:
    // `mostWaiting`: tasks that may wait.
    explicit Worker(std::size_t mostWaiting = 64);
    ~Worker(); // waits for the running task; drops those that wait, without calling their `done`
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // Main loop's thread. False: too many tasks wait, nothing was done (answer 503).
    [[nodiscard]] bool run(std::function<void()> task, std::function<void(std::exception_ptr)> done);

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace panel
