// Waits for the first packets of a stream. Main thread.
#pragma once

namespace detect {

// 1 once a packet has come on both sockets, RTP on one and RTCP on the other. -1: no packet within `seconds`, a socket
// failed, or a signal came (libcommon's interruption flag is then set). Each packet restarts the time; a negative time
// fails at once.
int waitForTransport(int dataSocket, int controlSocket, int seconds);

} // namespace detect
