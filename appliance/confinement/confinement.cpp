#include "appliance/confinement/confinement.h"

#include "appliance/confinement/calls.h"
#include "appliance/confinement/paths.h"

#include <sys/prctl.h>

namespace confinement {

// Core dumps stay possible: the kernel hands them to its recorder, which is not confined.
Result confine(const Needs& needs) {
    Result result;
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return result;
    confinePaths(needs, result);
    result.calls = confineCalls(needs);
    return result;
}

std::string whatStaysOpen(const Result& result) {
    std::string text;
    const auto add = [&text](Part part, const char* what) {
        if (part == Part::done)
            return;
        text += text.empty() ? "" : ", ";
        text += what;
        text += part == Part::unknownToKernel ? " (the kernel can't)" : " (failed)";
    };
    add(result.files, "files");
    add(result.ports, "TCP ports");
    add(result.calls, "system calls");
    return text;
}

} // namespace confinement
