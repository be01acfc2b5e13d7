#include "tests/fakes/fake_barrier_table.h"

std::set<int> fake::players;

namespace {

int record(const char* function, int pid) {
    fake::calls.push_back(std::string(function) + "(" + std::to_string(pid) + ")");
    return 0;
}

} // namespace

std::string barrierFileName(int pid) {
    return "/var/tmp/barrier." + std::to_string(pid);
}

int createBarrier(int pid) {
    return record("createBarrier", pid);
}

int removeBarrier(int pid) {
    return record("removeBarrier", pid);
}

int dropBarrier(int pid) {
    return record("dropBarrier", pid);
}

int removeStaleBarriers() {
    fake::calls.emplace_back("removeStaleBarriers()");
    return 0;
}

int barrierQueue(int) {
    return 0;
}

bool isPlayer(int pid) {
    return fake::players.contains(pid);
}
