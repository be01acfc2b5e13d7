#include "detect/descriptor.h"
#include "detect/probe_connection.h"
#include "detect/probes.h"
#include "detect/trace.h"
#include "detect/verdict.h"
#include "process/trace_output.h"
#include "recorder/recorded.h"

#include <unistd.h>

namespace detect {
namespace {

int tryOverHttp(SourceEntry& entry, int statusId) {
    ConnectMode mode = CONNECT_AUTO;
    if (rtspOverHttpProbe(entry, statusId, mode) != PROBE_ACCEPTED) {
        printTrace("RTSP detect failed");
        traceDecision("not RTSP: the stream is not described, and its path does not answer over HTTP");
        return PROBE_NOT_THIS_KIND;
    }
    printTrace("RTSP over HTTP. ConnectMode: %s\n", connectModeText(mode));
    // kept: there is no connection in this case, and 0 is closed in its place. Afterwards descriptor 0 may be any
    // descriptor of this process, so no code may take 0 for "none".
    close(0);
    return PROBE_ACCEPTED;
}

int tryTransports(SourceEntry& entry, int statusId, Descriptor connection, ConnectMode mode) {
    printTrace("RTSP. ConnectMode: %s\n", connectModeText(mode));
    int result = multicastProbe(entry, statusId, connection.get(), mode);
    connection = Descriptor();
    if (recorded::isInterrupted())
        return PROBE_FAILED;
    if (result == PROBE_ACCEPTED)
        return result;

    connection = connectRtsp(entry);
    if (recorded::isInterrupted())
        return PROBE_FAILED;
    result = unicastProbe(entry, statusId, connection.get(), mode); // fails without a connection
    connection = Descriptor();
    if (recorded::isInterrupted())
        return PROBE_FAILED;
    if (result == PROBE_ACCEPTED)
        return result;

    acceptRtsp(entry, statusId, TYPE_RTSP_TCP, mode,
               "the stream is described, but no packets come by multicast or unicast");
    return PROBE_ACCEPTED;
}

} // namespace

int rtspDecision(SourceEntry& entry, int statusId) {
    ConnectMode mode = CONNECT_AUTO;
    Descriptor connection = describeOverTcp(entry, mode);
    if (recorded::isInterrupted())
        return PROBE_FAILED;
    if (!connection.isOpen())
        return tryOverHttp(entry, statusId);
    return tryTransports(entry, statusId, std::move(connection), mode);
}

} // namespace detect
