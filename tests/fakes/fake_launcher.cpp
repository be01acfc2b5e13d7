#include "tests/fakes/fake_launcher.h"

#include <resolv.h>

namespace fake {

std::function<void(int, int)> onSignalPlayer;
std::function<void(int)> onSleepSeconds;

void resetLauncher() {
    onSignalPlayer = nullptr;
    onSleepSeconds = nullptr;
}

} // namespace fake

void signalPlayer(int pid, int signo) {
    fake::calls.push_back("signalPlayer(" + std::to_string(pid) + "," + std::to_string(signo) + ")");
    if (fake::onSignalPlayer)
        fake::onSignalPlayer(pid, signo);
}

void sleepSeconds(int seconds) {
    fake::calls.push_back("sleepSeconds(" + std::to_string(seconds) + ")");
    if (fake::onSleepSeconds)
        fake::onSleepSeconds(seconds);
}

// Replaces the C library's function.
extern "C" int __res_init() noexcept {
    fake::calls.emplace_back("__res_init()");
    return 0;
}
