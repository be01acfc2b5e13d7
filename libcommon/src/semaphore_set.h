// Taking the appliance's semaphore set down.
#pragma once

namespace local {

// Removes the set and the file that names it. Returns how many there were; -1 with a log line. The caller has made sure
// that no supervisor lives.
int removeSemaphoreSet();

} // namespace local
