#include "appliance/ctl/fleet_command.h"

#include "appliance/ctl/program_beside.h"
#include "appliance/operating/refused.h"

#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// A descriptor with the text, to be read from its beginning. -1 with errno.
int memoryWith(const std::string& text) {
    const int fd = memfd_create("fleet-request", MFD_CLOEXEC);
    const bool written = fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    return written && lseek(fd, 0, SEEK_SET) == 0 ? fd : -1;
}

const char* wordOf(Command command) {
    return command == Command::Select ? "select" : command == Command::Alarm ? "alarm" : "status";
}

} // namespace

void becomeFleet(const Request& request) {
    mqtt::FleetRequest fleet = request.fleet;
    fleet.word = wordOf(request.command);
    fleet.source = request.source;
    fleet.text = request.text;
    fleet.json = request.json;
    const std::string program = programBeside("decoder-fleet");
    const int fd = memoryWith(mqtt::fleetRequestText(fleet));
    if (fd < 0 || dup2(fd, STDIN_FILENO) < 0) {
        throw Refused(std::string("the request can't be handed over: ") + std::strerror(errno));
    }
    execl(program.c_str(), "decoder-fleet", nullptr);
    throw Refused(errno == ENOENT ? "--fleet needs the package skelmor-mqtt"
                                  : program + " can't be started: " + std::strerror(errno));
}
