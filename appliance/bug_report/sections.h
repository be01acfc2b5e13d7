// What is known about the decoder and its machine. Passwords are still in it.
#pragma once

#include "appliance/bug_report/part.h"

#include <vector>

namespace bug_report {

// Status, sources, detections, configuration and its mistakes.
std::vector<Part> decoderParts();

// Versions, processes, queues and semaphores, files, memory and disks.
std::vector<Part> machineParts();

// The last lines of the log, and where programs of the decoder crashed.
std::vector<Part> logParts();

} // namespace bug_report
