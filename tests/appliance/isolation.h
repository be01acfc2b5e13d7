// Private namespaces for a test.
#pragma once

#include <string>
#include <vector>

namespace appliance {

// Gives this process and its children their own System V queues and semaphores and their own loopback network
// with multicast. Tests that run at the same time then do not disturb each other, and leftovers are found. Works
// for root, and for users where user namespaces are allowed. Does nothing when repeated. Returns false where it
// is refused: the test then shares the machine's queues and network.
bool isolate();

// The existing System V queues and semaphore sets, as "queue 5" and "semaphores 3".
std::vector<std::string> queues();
std::vector<std::string> semaphoreSets();
// Only in an isolated process.
void removeQueues();
void removeSemaphoreSets();

// The number of messages in all queues.
int queuedMessages();

// The processes with this APPLIANCE_ROOT in their environment, except this one, as "PID NAME".
std::vector<std::string> processesUnder(const std::string& root);

} // namespace appliance
