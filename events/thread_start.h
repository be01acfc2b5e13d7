// Starting a detached thread on a machine that has no room for one at the moment.
#pragma once

#include <cstddef>

// Starts `body(argument)` with a stack of so many bytes; 0: the usual size. While the machine refuses (too many
// processes, no memory), tries again for two seconds, with signals let in; the log says so, and names `what`. False when
// it was refused all the time. Main thread.
bool startDetachedThread(void* (*body)(void*), void* argument, std::size_t stackSize, const char* what);
