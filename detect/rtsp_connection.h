// RTSP on one TCP connection to the encoder: requests and answers, and the DESCRIBE that opens every probe.
//
// One sequence number counts all requests of the process; each step says when it advances. Main thread.
#pragma once

#include "detect/descriptor.h"
#include "detect/rtsp_request.h"
#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <string>

namespace detect {

inline constexpr unsigned short rtspDefaultPort = 554;

// The encoder's host and RTSP port, as its address has them.
struct RtspAddress {
    std::string host;
    unsigned short port = rtspDefaultPort;
};
RtspAddress rtspAddress(const SourceEntry& entry);

Descriptor connectRtsp(const SourceEntry& entry);

// Moves on to the next sequence number.
void advanceCSeq();

struct RtspAnswer {
    bool sent = false; // the request went out
    bool ok = false;   // an answer with status 200 came
    ResponseHeader header;
};

// Sends a request with the current sequence number and reads the answer's header. `extraLine` "" for none.
RtspAnswer askRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
                   ConnectMode mode);

// Sends a request without waiting for its answer. False: not all of it went out.
bool sendRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
              ConnectMode mode);

// DESCRIBE over TCP, without credentials and then with them: the open connection, and in `mode` whether they
// were needed (1 no, 2 yes). None when the encoder does not describe the source's stream, and when
// interrupted.
Descriptor describeOverTcp(const SourceEntry& entry, ConnectMode& mode);

// Accepts the source with the encoder's own host and RTSP port, without audio.
void acceptRtsp(SourceEntry& entry, int statusId, int type, ConnectMode mode, const std::string& reason);

} // namespace detect
