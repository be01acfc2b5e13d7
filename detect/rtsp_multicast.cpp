#include "detect/detection_state.h"
#include "detect/multicast_group.h"
#include "detect/probe_connection.h"
#include "detect/probe_session.h"
#include "detect/probes.h"
#include "detect/rtsp_transport_wait.h"
#include "detect/trace.h"
#include "process/trace_output.h"

#include <cerrno>
#include <cstring>

namespace detect {
namespace {

// Membership in the stream's group on its two ports; the destructor leaves the group.
class Membership {
public:
    Membership() = default;
    Membership(const Membership&) = delete;
    Membership& operator=(const Membership&) = delete;
    ~Membership() {
        leaveMulticast(data_, dataMembership_);
        leaveMulticast(control_, controlMembership_);
    }

    bool join(const TransportHeader& transport) {
        if (!joinMulticast(data_, transport.destination, transport.port, dataMembership_)) {
            printTrace("Failed to open dataFD %d %s\n", errno, std::strerror(errno));
            return false;
        }
        const auto controlPort = static_cast<std::uint16_t>(transport.port + 1);
        if (!joinMulticast(control_, transport.destination, controlPort, controlMembership_)) {
            printTrace("Failed to open inControlFD %d %s\n", errno, std::strerror(errno));
            return false;
        }
        return true;
    }

    int data() const { return data_; }
    int control() const { return control_; }

private:
    int data_ = -1;
    int control_ = -1;
    ip_mreq dataMembership_{};
    ip_mreq controlMembership_{};
};

bool packetsCome(Membership& membership, const TransportHeader& transport) {
    TraceStep step("RTP and RTCP of group " + quoted(transport.destination) + " port " +
                   std::to_string(transport.port));
    if (!membership.join(transport)) {
        step.answered("the group could not be joined");
        return false;
    }
    const bool came = waitForTransport(membership.data(), membership.control(), state.timeoutSeconds) == 1;
    step.answered(came ? "both came" : "not both came");
    return came;
}

} // namespace

int multicastProbe(SourceEntry& entry, int statusId, int connection, ConnectMode mode) {
    RtspSession session(entry, connection, mode);
    if (!session.setup("Transport: RTP/AVP;multicast") || !session.play())
        return PROBE_FAILED;
    Membership membership; // held until the encoder was told to stop
    if (!packetsCome(membership, session.transport()) || !session.teardown())
        return PROBE_FAILED;
    acceptRtsp(entry, statusId, TYPE_RTSP_MULTICAST, mode, "multicast packets came");
    return PROBE_ACCEPTED;
}

} // namespace detect
