// A test's own corner of the machine.
#pragma once

#include <string>
#include <vector>

namespace appliance {

// Gives this process, and what it starts from now on, its own System V queues and semaphores and its own
// loopback network (with multicast), where the machine allows it: to root, or to users as root of a namespace
// of their own; so that tests that run at once never meet, and what one leaves behind is found. Harmless when
// repeated. False where it is refused: tests then share the machine's.
bool isolate();

// System V queues and semaphore sets there are, as "queue 5" and "semaphores 3".
std::vector<std::string> queues();
std::vector<std::string> semaphoreSets();
// Only in an isolated process.
void removeQueues();
void removeSemaphoreSets();

// How many messages wait in all queues.
int queuedMessages();

// Processes, other than this one, whose environment has this APPLIANCE_ROOT, as "PID NAME".
std::vector<std::string> processesUnder(const std::string& root);

} // namespace appliance
