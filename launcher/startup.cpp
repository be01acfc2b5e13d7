#include "launcher/startup.h"

#include "barrier/barrier_table.h"
#include "events/button.h"
#include "events/event_handler.h"
#include "events/event_queue.h"
#include "launcher/shutdown.h"
#include "launcher/state_machine.h"
#include "player/children.h"
#include "process/agreed_numbers.h"
#include "process/owner_lock.h"
#include "process/process_state.h"
#include "process/signal_mask.h"
#include "process/trace_output.h"
#include "recorder/recorder.h"

#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/semaphores.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int noButtonThread = -1; // exit status 255
constexpr int notTheOwner = 1;

void openLog() {
    openlog("SkelMor", 0, 0);
}

// Two supervisors on one appliance root would take each other's events and barriers.
void requireOwnerLock() {
    const OwnerLock lock = takeOwnerLock();
    if (lock.result == OwnerLock::Result::taken)
        return;
    openLog();
    if (lock.result == OwnerLock::Result::unavailable) {
        // Playing is more important than the lock: the supervisor starts without it.
        logmsg(3, "Cannot lock %s, so a second supervisor would not be noticed. (errno=%d %s)",
               lock.file.c_str(), lock.error, std::strerror(lock.error));
        return;
    }
    const std::string owner = lock.pid == -1 ? "an unknown process" : "process " + std::to_string(lock.pid);
    logmsg(3, "Not started: %s is the supervisor of this appliance and has %s", owner.c_str(),
           lock.file.c_str());
    printError("skelmor: not started: %s is the supervisor of this appliance and has %s\n", owner.c_str(),
               lock.file.c_str());
    std::exit(notTheOwner);
}

// From here on a handler runs only where the main thread waits. The inherited signal mask is dropped: a signal that
// our parent blocked would never be delivered.
void installSignals() {
    installShutdownHandler();
    unblockAllSignals();
    blockSignalsWhileWorking();
}

void limitChattyEvents() {
    setQueueLimit(EID_ALARM, 1);
    setQueueLimit(EID_BUTTON, 2);
    setQueueLimit(EID_CONNECTPROPERTYCHANGED, 2);
}

} // namespace

void readOptions(int argc, char** argv) {
    opterr = 0;
    optind = 0;
    for (int option = getopt(argc, argv, "v"); option != -1; option = getopt(argc, argv, "v"))
        if (option == 'v')
            ++process.verbosity;
}

void runSupervisor(int argc, char** argv) {
    requireOwnerLock();
    process.supervisorPid = getpid();
    readOptions(argc, argv);
    openLog();
    logmsg(6, "Started");
    installSignals();
    syncEncoderInfo();
    installChildReaper();
    initEventQueue();
    recorder::startRecording();
    startEventHandler();
    removeStaleBarriers();
    limitChattyEvents();
    semaphoreInit(playerStartSemaphore);
    semaphoreInit(lockSemaphore);
    if (!startButtonThread())
        std::exit(noButtonThread);
    stateMachine();
    std::exit(0);
}
