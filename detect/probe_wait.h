// Network waits of the probes that libcommon has no function for. Only SIGUSR1 and SIGINT are delivered during these
// waits, so an interrupted wait always means an interrupted detection. Main thread.
#pragma once

#include <libcommon/network.h>

#include <poll.h>
#include <span>

namespace detect {

// Returns how many sockets are readable, 0 when the time is over. -1 with errno: EINTR after a handler ran, EINVAL
// for a negative time.
int waitReadable(std::span<pollfd> sockets, double seconds);

// Reads and discards the body that "Content-Length" announces. Ends when all of it has come, the connection ends, the
// detection timeout is over or a signal comes. Returns the number of bytes.
int skipBody(int connection, const ResponseHeader& header);

// Waits up to one second for an answer and reads its header. The content does not matter.
void awaitAnswer(int connection);

} // namespace detect
