// The stream probes: each finds out whether the encoder delivers one kind of stream.
//
// A probe that accepts the encoder publishes its verdict itself: error code, type, connect mode and, for most kinds,
// audio. Main thread; each probe blocks for its requests.
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

// `mode` is set to the connect mode when the encoder is accepted.
int rtspOverHttpProbe(SourceEntry& entry, int statusId, ConnectMode& mode);

// These work on an open RTSP connection, which the caller closes; `mode` is the connect mode of its DESCRIBE.
int multicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode);
int unicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode);

// The RTSP decision: tries multicast, unicast and the plain connection in this order. 0: the encoder does
// not speak RTSP.
int rtspDecision(SourceEntry& entry, int statusId);

// Whether the encoder delivers audio beside its MJPEG stream. Sets `audioAvailable`.
bool audioProbe(SourceEntry& entry);

} // namespace detect
