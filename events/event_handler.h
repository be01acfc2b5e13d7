// The event handler thread: moves the appliance's events into the internal queue.
//
// It also decides when a busy main thread must be interrupted. When the main thread does not sleep in a blocking
// take, user actions and the loss of the connection send it SIGUSR1, so that a detection gives up early.
#pragma once

#include <libcommon/events.h>

// Starts the thread, detached, and returns when it takes events, at the latest after 5 seconds: what is sent from then on is
// not dropped as an event from before the start. The thread ends only when waitEvent() fails, and is not started again; from
// then on no events reach the state machine. A failure to start it is ignored.
void startEventHandler();

// What the thread does with one event: drops or queues it, and interrupts the main thread. Declared for tests.
void handleIncomingEvent(const Event& event);
