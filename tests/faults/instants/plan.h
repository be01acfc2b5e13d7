// One instant: where in the supervisor's run a signal comes.
#pragma once

#include "tests/faults/tracing/tracer.h"

#include <string>

namespace faults {

struct Plan {
    enum class Scene { start, quiet, flood, switches, detection, shutdown };
    enum class Place { time, call, function };

    Scene scene = Scene::start;
    Place place = Place::time;
    int microseconds = 0;   // of a time
    int hit = 1;            // which call
    bool atEntry = true;    // of a call
    bool anyThread = false; // of a call; else the main thread's
    const void* function = nullptr;
    std::string functionName;
    Deed deed;

    int signal() const; // SIGINT or SIGSEGV
    std::string text() const;
};

// The plan of this item; the same for the same seed.
Plan makePlan(unsigned seed, long item);

} // namespace faults
