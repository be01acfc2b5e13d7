// Waiting for the network where libcommon does not wait for us. While these wait, SIGUSR1 and SIGINT are let
// in and no other signal, so that an interrupted wait means an interrupted detection and nothing else. Main
// thread.
#pragma once

#include <libcommon/network.h>

#include <poll.h>
#include <span>

namespace detect {

// How many of the sockets have something to read, 0 when the seconds are over. -1 with errno: EINTR after a
// handler ran, EINVAL for a negative time.
int waitReadable(std::span<pollfd> sockets, double seconds);

// Reads and discards the body that "Content-Length" announces: until all of it came, the connection ended,
// the detection timeout is over or a signal came. The bytes discarded.
int skipBody(int connection, const ResponseHeader& header);

// Waits up to a second for an answer whose content does not matter, and reads its header if one comes.
void awaitAnswer(int connection);

} // namespace detect
