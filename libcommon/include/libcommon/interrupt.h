// The interruption flag: "stop the network operation in progress".
//
// One flag per process. libcommon's own network waits set it when a SIGUSR1 with a handler reaches them; a caller
// that waits itself sets it with setInterrupted(). It stays set until clearInterrupted(), and every network
// operation that starts while it is set fails at once. Any thread; safe in a signal handler.
#pragma once

bool isInterrupted();
void setInterrupted();
void clearInterrupted();
