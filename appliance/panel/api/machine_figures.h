// Figures of processes and of the decoder's event queue, from the kernel. Any thread.
#pragma once

#include <optional>
#include <string>

namespace panel {

struct ProcessFigures {
    double residentBytes = 0;
    std::optional<double> privateBytes; // what only this process has; nothing: this user may not know
    double cpuSeconds = 0;              // user and system
};

// Nothing when there is no such process.
std::optional<ProcessFigures> processFigures(int pid);

struct QueueFigures {
    double messages = 0;
    double bytes = 0;
    double mostBytes = 0;
};

// The supervisor's event queue; nothing when there is none, or this user may not look.
std::optional<QueueFigures> eventQueueFigures();

} // namespace panel
