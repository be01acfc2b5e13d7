// A network of a test's own, in which multicast can reach nobody else.
#pragma once

#include <string>

// Moves the calling process, which must not have other threads yet, into a network namespace that has a
// loopback interface with a route for multicast and nothing else. Gives the reason when that is not allowed
// here, or "".
std::string enterOwnNetwork();
