#include "detect/detection_state.h"

namespace detect {

// Process-wide state, described in the header. The driver writes it, the probes read it. Main thread.
State state;

} // namespace detect
