#include "tests/appliance/holding.h"

#include "tests/appliance/isolation.h"

#include <csignal>
#include <gtest/gtest.h>

namespace appliance {

Frozen::Frozen(Appliance& decoder) : decoder_(decoder) {
    decoder_.supervisor().signal(SIGSTOP);
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
