#include "launcher/startup.h"

#include <cstdio>

int main(int argc, char** argv) {
    // Trace lines come out one by one where they are written, in a file too, and a fork never carries half of
    // them on.
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    runSupervisor(argc, argv);
}
