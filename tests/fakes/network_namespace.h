// A network of the test's own, for what must not touch the machine's: multicast, and ports that have to be
// free.
#pragma once

#include <string>

// Moves this process into a new network namespace with lo up and a route for 224.0.0.0/4 over it. "" when
// that worked, else why not: the test then skips with that text. Before the process has a second thread.
std::string enterNetworkNamespace();
