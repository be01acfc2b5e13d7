// RTSP on one TCP connection to the encoder: requests, answers, and the DESCRIBE that begins every probe.
//
// One sequence number counts the requests of the whole process; each step says when it advances. Main thread.
#pragma once

#include "detect/descriptor.h"
#include "detect/rtsp_request.h"
#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <string>

namespace detect {

inline constexpr unsigned short rtspDefaultPort = 554;

// The encoder's host and RTSP port, from its address.
struct RtspAddress {
    std::string host;
    unsigned short port = rtspDefaultPort;
};
RtspAddress rtspAddress(const SourceEntry& entry);

Descriptor connectRtsp(const SourceEntry& entry);

// Advances the sequence number by one.
void advanceCSeq();

struct RtspAnswer {
    bool sent = false; // the request was sent completely
    bool ok = false;   // the answer has status 200
    ResponseHeader header;
};

// Sends a request with the current sequence number and reads the answer's header. `extraLine` "" for none.
RtspAnswer askRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
                   ConnectMode mode);

// Sends a request without waiting for its answer. False: it could not be sent completely.
bool sendRtsp(int connection, const SourceEntry& entry, RtspMethod method, const std::string& extraLine,
              ConnectMode mode);

// DESCRIBE over TCP, first without and then with credentials. Returns the open connection; `mode` says whether
// the credentials were needed (1 no, 2 yes). No connection when the encoder does not describe the stream, or
// after an interruption.
Descriptor describeOverTcp(const SourceEntry& entry, ConnectMode& mode);

// Accepts the source with the encoder's own host and RTSP port, without audio.
void acceptRtsp(SourceEntry& entry, int statusId, StreamType type, ConnectMode mode,
                const std::string& reason);

} // namespace detect
