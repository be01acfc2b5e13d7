// The stream probes: does the encoder deliver this kind of stream?
//
// Each publishes its verdict itself when it accepts: error code, type, connect mode, and audio where it says
// so. Main thread; each blocks for its requests.
#pragma once

#include "sources/source_entry.h"

#include <libcommon/network.h>

namespace detect {

enum ProbeResult : int {
    PROBE_FAILED = -1,       // definite failure or interruption
    PROBE_NOT_THIS_KIND = 0, // try the next
    PROBE_ACCEPTED = 1,
};

int mjpegProbe(SourceEntry& entry, int statusId);
int mpeg2Probe(SourceEntry& entry, int statusId);
int sdpProbe(SourceEntry& entry, int statusId);

// `mode` is how the encoder was reached, once it accepted.
int rtspOverHttpProbe(SourceEntry& entry, int statusId, ConnectMode& mode);

// On an open RTSP connection, which stays the caller's to close; `mode` is that of its DESCRIBE.
int multicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode);
int unicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode);

// The RTSP decision: tries multicast, unicast and the plain connection in this order. 0: not RTSP in any way.
int rtspDecision(SourceEntry& entry, int statusId);

// Whether the encoder delivers audio beside its MJPEG stream; the entry keeps the answer.
bool audioProbe(SourceEntry& entry);

} // namespace detect
