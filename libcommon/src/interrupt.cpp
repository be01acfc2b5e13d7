#include <libcommon/interrupt.h>

#include <atomic>

namespace {

// ---- Process-wide state ----
// Initially false. Written by setInterrupted (any thread, signal handlers) and clearInterrupted (the caller
// that begins an operation), read by every network wait. Lock-free, or it would not be safe in a signal handler.
std::atomic<bool> interruption = false;
static_assert(std::atomic<bool>::is_always_lock_free);

} // namespace

bool isInterrupted() {
    return interruption;
}

void setInterrupted() {
    interruption = true;
}

void clearInterrupted() {
    interruption = false;
}
