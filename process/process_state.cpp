#include "process/process_state.h"

#include <libcommon/log.h>

#include <type_traits>

// The timer, button and event handler threads still run while the main thread exits: these values need no
// constructor and no destructor.
constinit ProcessState process;
static_assert(std::is_trivially_destructible_v<ProcessState>);
static_assert(std::atomic<int>::is_always_lock_free);

int getMode() {
    return process.mode;
}

void setMode(int newMode) {
    const int oldMode = process.mode;
    if (newMode == oldMode)
        return;
    if (process.verbosity > 0)
        logmsg(7, "\033[1;35mMode transition: %d -> %d\033[0m", oldMode, newMode);
    process.mode = newMode;
}
