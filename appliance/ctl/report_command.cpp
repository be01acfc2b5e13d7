#include "appliance/ctl/report_command.h"

#include "appliance/ctl/program_beside.h"
#include "appliance/operating/refused.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

void becomeReport(const Request& request) {
    const std::string program = programBeside("decoder-report");
    if (request.json) {
        execl(program.c_str(), "decoder-report", "--json", request.file.c_str(), nullptr);
    } else {
        execl(program.c_str(), "decoder-report", request.file.c_str(), nullptr);
    }
    throw Refused(program + " can't be started: " + std::strerror(errno));
}
