// Taking the appliance's semaphore set down.
#pragma once

namespace local {

// Removes the set and the file that names it. 1 when there was one, 0 when not; -1 with a log line. The caller has
// made sure that no supervisor lives.
int removeSemaphoreSet();

} // namespace local
