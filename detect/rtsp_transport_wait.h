// Waiting for the first packets of a stream. Main thread.
#pragma once

namespace detect {

// 1 once a packet came on both sockets, RTP on the one and RTCP on the other. -1: `seconds` passed without a
// packet, a socket failed, or a signal came (then libcommon's interruption flag is set). Each packet starts
// the time anew; a negative time fails at once.
int waitForTransport(int dataSocket, int controlSocket, int seconds);

} // namespace detect
