#include "detect/interruption.h"

#include "process/signal_mask.h"
#include "recorder/recorder.h"

#include <libcommon/interrupt.h>
#include <libcommon/log.h>

namespace detect {
namespace {

// Process-wide state.
// 1 once a SIGUSR1 came during this detection. Set by the handler, cleared when a detection begins.
volatile sig_atomic_t abortFlag = 0;

} // namespace

void autoDetectSignalHandler(int signo) {
    if (signo == SIGUSR1)
        abortFlag = 1;
    else
        logmsg(3, "autoDetectSignalHandler() got sprawling signal (signo=%d)", signo);
}

InterruptionSignal::InterruptionSignal() {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &one, &saved_);
    // A blocked signal stays pending even while it is ignored. Ignoring it once more discards it.
    std::signal(SIGUSR1, SIG_IGN);
    struct sigaction action {};
    action.sa_handler = autoDetectSignalHandler; // without SA_RESTART: waits end with EINTR
    sigemptyset(&action.sa_mask);
    sigaction(SIGUSR1, &action, nullptr);
    clearInterrupted();
    abortFlag = 0;
}

InterruptionSignal::~InterruptionSignal() {
    std::signal(SIGUSR1, SIG_IGN); // before it is unblocked: this discards a pending signal
    pthread_sigmask(SIG_SETMASK, &saved_, nullptr);
}

bool isDetectionInterrupted() {
    return recorder::outcome("signal", [] {
               deliverPending(SIGUSR1);
               const bool networkInterrupted = isInterrupted();
               if (networkInterrupted)
                   clearInterrupted();
               return networkInterrupted || abortFlag != 0 ? 1 : 0;
           }) != 0;
}

} // namespace detect
