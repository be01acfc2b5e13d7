// Which errors a system call may have on a machine that lacks something, or whose disk is ill.
#pragma once

#include "tests/faults/tracing/tracer.h"

#include <string>
#include <vector>

namespace faults {

// Empty for a call that does not fail in this way, such as getpid, and for one whose failure no program could survive,
// such as the end of a signal handler.
std::vector<int> likelyErrors(const Call& call);

std::string errorName(int error); // "ENOSPC"

} // namespace faults
