#include "launcher/startup.h"

#include "barrier/barrier_table.h"
#include "events/button.h"
#include "events/event_handler.h"
#include "events/event_queue.h"
#include "launcher/shutdown.h"
#include "launcher/state_machine.h"
#include "player/children.h"
#include "process/agreed_numbers.h"
#include "process/process_state.h"
#include "process/signal_mask.h"

#include <libcommon/events.h>
#include <libcommon/log.h>
#include <libcommon/params.h>
#include <libcommon/semaphores.h>

#include <cstdlib>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr int noButtonThread = -1; // 255 to whoever waits for us

// From here on a signal's handler runs only where the main thread waits. The mask that the starter left us is
// of no interest: what it blocked would never reach a handler.
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
    process.supervisorPid = getpid();
    readOptions(argc, argv);
    openlog("SkelMor", 0, 0);
    logmsg(6, "Started");
    installSignals();
    syncEncoderInfo();
    installChildReaper();
    initEventQueue();
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
