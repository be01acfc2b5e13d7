#include "appliance/input/confinement.h"

#include "appliance/confinement/confinement.h"

#include <sys/prctl.h>
#include <sys/resource.h>

namespace input {

void confine(const NeededRights& rights) {
    const rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    setrlimit(RLIMIT_FSIZE, &none);
    prctl(PR_SET_DUMPABLE, 0);
    confinement::Needs needs;
    needs.files.readable = rights.readable;
    needs.files.devices = rights.device;
    needs.sockets = rights.network;
    needs.anyPort = rights.network; // a web server's segments, and SRT, may be on any
    confinement::confine(needs);
}

} // namespace input
