#include "tests/appliance/holding.h"

#include "tests/appliance/isolation.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <system_error>

namespace appliance {

namespace {

// The state letter follows the name in brackets. The name may contain any character.
bool standsStill(const std::filesystem::path& task) {
    const std::string stat = readFile(task / "stat");
    const std::size_t name = stat.rfind(") ");
    return name == std::string::npos || stat[name + 2] == 'T';
}

} // namespace

void stop(int pid) {
    kill(pid, SIGSTOP);
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    EXPECT_TRUE(eventually([&] {
        std::error_code gone; // the process has ended; then it counts as stopped
        return std::ranges::all_of(std::filesystem::directory_iterator(tasks, gone), standsStill);
    })) << pid;
}

Frozen::Frozen(Appliance& decoder) : decoder_(decoder) {
    stop(decoder_.supervisor().pid());
}

Frozen::~Frozen() {
    decoder_.supervisor().signal(SIGCONT);
}

int newPlayer(const Appliance& decoder, int otherThan) {
    int found = -1;
    eventually([&] {
        for (const int player : decoder.players()) {
            if (player != otherThan) {
                found = player;
            }
        }
        return found > 0;
    });
    return found;
}

void awaitAnnouncement(const std::function<void()>& action) {
    const int before = queuedMessages();
    action();
    ASSERT_TRUE(eventually([&] { return queuedMessages() > before; }));
}

} // namespace appliance
