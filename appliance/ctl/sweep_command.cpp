#include "appliance/ctl/sweep_command.h"

#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <libcommon/sweep.h>

#include <cerrno>
#include <cstring>

namespace {

void add(std::string& text, int count, const char* one, const char* many) {
    if (count > 0) {
        text += (text.empty() ? "" : ", ") + std::to_string(count) + ' ' + (count == 1 ? one : many);
    }
}

std::string doneText(const libcommon::Sweep& done) {
    std::string text;
    add(text, done.players, "player (killed)", "players (killed)");
    add(text, done.barriers, "barrier", "barriers");
    add(text, done.queues, "message queue", "message queues");
    add(text, done.semaphoreSets, "semaphore set", "semaphore sets");
    add(text, done.files, "file", "files");
    return text.empty() ? "nothing was left behind" : "removed: " + text;
}

} // namespace

std::string sweepAppliance() {
    libcommon::Sweep done;
    if (libcommon::sweep(done) == 0) {
        return doneText(done);
    }
    const int error = errno;
    if (error == EBUSY) {
        throw Refused("a decoder is running " + applianceText() +
                      (done.supervisor > 0 ? " (pid " + std::to_string(done.supervisor) + ')' : "") +
                      ": nothing was removed");
    }
    throw Refused(doneText(done) + "; " + std::to_string(done.failures) +
                  " could not be removed: " + std::strerror(error));
}
