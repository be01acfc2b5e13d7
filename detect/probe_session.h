// One stream on an RTSP connection: set up, played, torn down. Both transport probes use it. Main thread.
#pragma once

#include "detect/transport_header.h"
#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <string>

namespace detect {

class RtspSession {
public:
    // The caller closes `connection`; `mode` is the connect mode of its DESCRIBE.
    RtspSession(const SourceEntry& entry, int connection, ConnectMode mode)
        : entry_(entry), connection_(connection), mode_(mode) {}

    // SETUP with this "Transport: " line. False: refused, not answered or interrupted.
    bool setup(const std::string& transportLine);

    // How the encoder is going to send. Valid after setup().
    const TransportHeader& transport() const { return transport_; }

    // False: refused, not answered or interrupted.
    bool play();

    // TEARDOWN; waits up to one second for the answer. False: it could not be sent.
    bool teardown();

private:
    const SourceEntry& entry_;
    int connection_;
    ConnectMode mode_;
    TransportHeader transport_;
    std::string sessionLine_; // "Session: %d"
};

} // namespace detect
