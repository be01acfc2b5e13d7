// A network namespace for tests that must not touch the machine's network: multicast, and ports that have to be free.
#pragma once

#include <string>

// Moves this process into a new network namespace with lo up and a route for 224.0.0.0/4 over it. Returns "" or why it
// failed; the test then skips with that text. Call it before the process has a second thread.
std::string enterNetworkNamespace();
