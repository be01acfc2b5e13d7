// The event handler thread: brings the appliance's events into the internal queue.
//
// It also decides when a busy main thread must be disturbed: what the user did, and the loss of the
// connection, are announced with SIGUSR1 when nobody sleeps in a blocking take, so that a detection gives up
// early.
#pragma once

#include <libcommon/events.h>

// Starts the thread, detached. It ends only when waiting for events fails; nothing restarts it. A failure to
// start is ignored.
void startEventHandler();

// One turn of the thread for `event`: drop, queue, disturb. Declared for tests.
void handleIncomingEvent(const Event& event);
