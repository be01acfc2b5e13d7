#include "detect/descriptor.h"
#include "detect/detection_state.h"
#include "detect/probe_connection.h"
#include "detect/probe_session.h"
#include "detect/probes.h"
#include "detect/rtsp_transport_wait.h"
#include "detect/trace.h"
#include "player/port_pairs.h"
#include "process/trace_output.h"
#include "recorder/recorded.h"

#include <libcommon/log.h>

#include <cerrno>
#include <cstring>

namespace detect {
namespace {

// A socket for packets that the encoder sends to `port`.
Descriptor openUdp(const std::string& host, unsigned short port) {
    Descriptor socket(recorded::connectUDP(host, port, true));
    if (!socket.isOpen())
        printTrace("Failed to open dataFD %d %s\n", errno, std::strerror(errno)); // kept: for either socket
    return socket;
}

enum class Packets { Came, Missing, NoSocket, Interrupted };

Packets awaitPackets(const std::string& host, unsigned short port, Descriptor& data, Descriptor& control) {
    data = openUdp(host, port);
    if (!data.isOpen())
        return Packets::NoSocket;
    control = openUdp(host, static_cast<unsigned short>(port + 1));
    if (!control.isOpen())
        return Packets::NoSocket;
    const int result = waitForTransport(data.get(), control.get(), state.timeoutSeconds);
    if (recorded::isInterrupted())
        return Packets::Interrupted;
    return result == 1 ? Packets::Came : Packets::Missing;
}

const char* packetsText(Packets packets) {
    switch (packets) {
    case Packets::Came:
        return "both came";
    case Packets::Missing:
        return "not both came";
    case Packets::NoSocket:
        return "no socket";
    case Packets::Interrupted:
        return "interrupted";
    }
    return "";
}

} // namespace

int unicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode) {
    printTrace("\n\n\nDetecting RTSP Unicast...");
    const int port = recorder::outcome("port", allocateProbePortPair);
    if (port == -1) {
        logmsg(3, "Failed to find any free UDP port to bind!");
        return PROBE_FAILED;
    }
    RtspSession session(entry, connection, mode);
    if (!session.setup("Transport: RTP/AVP;unicast;client_port=" + std::to_string(port) + "-" +
                       std::to_string(port + 1)))
        return PROBE_FAILED;
    const TransportHeader& transport = session.transport();
    printTrace("server: %d\nclient: %d\n", transport.serverPort, transport.clientPort);
    if (!session.play())
        return PROBE_FAILED;

    // The sockets stay open until the encoder was told to stop: its last packets must not meet a closed port.
    Descriptor data;
    Descriptor control;
    TraceStep step("RTP and RTCP on local port " + std::to_string(transport.clientPort));
    const Packets packets = awaitPackets(rtspAddress(entry).host, transport.clientPort, data, control);
    step.answered(packetsText(packets));
    if (packets != Packets::Came || !session.teardown())
        return PROBE_FAILED;
    acceptRtsp(entry, statusId, TYPE_RTSP_UNICAST, mode, "unicast packets came");
    return PROBE_ACCEPTED;
}

} // namespace detect
