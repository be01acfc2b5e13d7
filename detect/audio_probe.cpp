#include "detect/parameter_query.h"
#include "detect/probes.h"

namespace detect {

bool audioProbe(SourceEntry& entry) {
    char firstByte = 0;
    entry.audioAvailable = fetch(entry, "/vexo-cgi/audio/receive.cgi", {&firstByte, 1}, nullptr) == 1;
    return entry.audioAvailable;
}

} // namespace detect
