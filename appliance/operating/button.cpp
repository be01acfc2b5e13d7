#include "appliance/operating/button.h"

#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <libcommon/paths.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

std::string pressButton(bool hold) {
    requireRunningAppliance();
    const std::string file = libcommon::appliancePath("/proc/sys/dev/button_videoselect");
    const int fd = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        throw Refused(errno == ENXIO ? "no program reads the button " + file + ": no decoder is running"
                                     : "the button " + file + " can't be pressed: " + std::strerror(errno));
    }
    struct stat info {};
    // A regular file would always read as pressed.
    const bool fifo = fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode);
    const ssize_t written = fifo ? write(fd, hold ? "2" : "1", 1) : 0;
    close(fd);
    if (!fifo) {
        throw Refused("the button " + file + " is not a FIFO, so only a person can press it");
    }
    if (written != 1) {
        throw Refused("the button " + file + " could not be pressed: " + std::strerror(errno));
    }
    return hold ? "button held" : "button pressed";
}
