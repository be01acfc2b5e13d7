#include "libcommon/src/fork_safe_mutex.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <pthread.h>

namespace local {

namespace {

// Every ForkSafeMutex in the order of construction. Written while the library is loaded, by one thread; read
// by forks.
constinit std::array<ForkSafeMutex*, 8> all{};
constinit std::size_t count = 0;

void lockAll() {
    for (std::size_t i = 0; i < count; ++i)
        all[i]->lock();
}

void unlockAll() {
    for (std::size_t i = count; i > 0; --i)
        all[i - 1]->unlock();
}

} // namespace

ForkSafeMutex::ForkSafeMutex() {
    if (count == all.size())
        std::abort();
    if (count == 0)
        pthread_atfork(lockAll, unlockAll, unlockAll);
    all[count++] = this;
}

} // namespace local
