#include "launcher/startup.h"
#include "process/standard_streams.h"
#include "process/trace_output.h"

int main(int argc, char** argv) {
    fillStandardStreams(); // before anything opens a file
    surviveBrokenPipes();
    openTraceOutput();
    runSupervisor(argc, argv);
}
