// The configuration that is in force: what the supervisor's last connect read.
//
// The supervisor reads the sequence mode and the list of sources when it connects, and keeps them until the next
// connect. When it writes "Decoder.Info.Connected" = yes, which it does right after that reading, the library keeps a
// copy of parameter file 0, without user names and passwords, in /run/decoder/connected.conf below the appliance root.
// Programs compare it with the present file to show which changes have no effect yet.
#pragma once

#include <libcommon/params.h>

#include <string>
#include <vector>

namespace libcommon {

struct ConnectedConfiguration {
    bool known = false;       // false: no supervisor has connected with this library yet
    int supervisor = -1;      // the process that connected
    std::string sequenceMode; // "auto" or "manual": an unknown text keeps the mode of the connect before
    std::vector<SourceParams> sources; // as getSubGroups(0, "Encoder") was at the connect
    bool unchanged = false;            // parameter file 0 has not been written since
};

// Reads it. Says nothing about whether the decoder is connected now: "Decoder.Info.Connected" does. Any thread.
ConnectedConfiguration connectedConfiguration();

} // namespace libcommon
