// The steps of a shutdown, run so that none of them can stop it.
//
// The shutdown handler can interrupt any code. After a crash the main thread may hold any lock of the C library, the
// allocator, libcommon or OpenSSL, and memory may be damaged. So every call into code that is not ours is a step: it
// may fail in any way, and the shutdown continues with the next one.
//
// - A step that crashes is abandoned: the SIGSEGV handler jumps back to runStep(). The caller may try it again.
// - A step that hangs is abandoned after one second: the watchdog sends this thread a SIGSEGV, which is the signal
//   that no library blocks.
// - When even that does not help, because SIGSEGV is blocked, the watchdog stops the players itself and ends
//   the process.
// - From limitRest() on the process ends within a few seconds, whatever happens.
//
// The watchdog is a thread that is made when the shutdown begins, on a stack of its own in static memory. It only makes
// system calls, so it needs no lock, and it allocates nothing. If it were made earlier, the decoder would have one more
// thread all the time. If it can't be made, the shutdown continues without it; under the thread sanitizer, which must
// know every thread, there is none.
#pragma once

#include <csetjmp>

namespace shutdown_steps {

// Starts the watchdog. Main thread, in the shutdown handler, once.
void begin();

// True from begin() on.
bool underWay();

// From now on the process ends with status 0 after at most five seconds.
void limitRest();

// For the SIGSEGV handler: abandons the step that runs now and does not return; returns when none runs.
void abandonStep();

// Whether the running step has used up its time; the SIGSEGV then comes from the watchdog.
bool stepIsOverdue();

enum class StepEnd { done, crashed, hung };

// Internals of runStep().
extern sigjmp_buf stepStart;
void stepBegins();
void stepEnds();

// Runs one step; returns when it is done, and when it was abandoned.
template<class Argument>
StepEnd runStep(void (*step)(Argument), Argument argument) {
    const int abandoned = sigsetjmp(stepStart, 1);
    if (abandoned == 0) {
        stepBegins();
        step(argument);
    }
    stepEnds();
    return static_cast<StepEnd>(abandoned);
}

} // namespace shutdown_steps
