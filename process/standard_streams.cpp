#include "process/standard_streams.h"

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

void fillStandardStreams() {
    // open() returns the lowest free number, so the gaps fill up from below.
    int fd = open("/dev/null", O_RDWR);
    while (fd >= 0 && fd <= STDERR_FILENO)
        fd = open("/dev/null", O_RDWR);
    if (fd >= 0)
        close(fd);
}

void surviveBrokenPipes() {
    struct sigaction action {};
    action.sa_handler = [](int) {};
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGPIPE, &action, nullptr);
}
