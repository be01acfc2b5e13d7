// The system calls of a confined process.
#pragma once

#include "appliance/confinement/confinement.h"

namespace confinement {

// Needs "no new privileges". `failed` also where the kernel was built without filters, or the processor is unknown.
Part confineCalls(const Needs& needs);

} // namespace confinement
