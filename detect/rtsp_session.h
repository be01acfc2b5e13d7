// One stream on an RTSP connection: set up, played, torn down. The two transport probes share it. Main
// thread.
#pragma once

#include "detect/transport_header.h"
#include "sources/source_entry.h"

#include <libcommon/network.h>

#include <string>

namespace detect {

class RtspSession {
public:
    // `connection` stays the caller's; `mode` is that of its DESCRIBE.
    RtspSession(const SourceEntry& entry, int connection, ConnectMode mode)
        : entry_(entry), connection_(connection), mode_(mode) {}

    // SETUP with that "Transport: " line. False: refused, not answered or interrupted.
    bool setup(const std::string& transportLine);

    // How the encoder wants to send; after setup.
    const TransportHeader& transport() const { return transport_; }

    // False: refused, not answered or interrupted.
    bool play();

    // TEARDOWN, and a second for its answer. False: it could not be sent.
    bool teardown();

private:
    const SourceEntry& entry_;
    int connection_;
    ConnectMode mode_;
    TransportHeader transport_;
    std::string sessionLine_; // "Session: %d"
};

} // namespace detect
