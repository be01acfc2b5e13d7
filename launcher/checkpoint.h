// The whole state of the machine in the recording, so that a replay can begin there.
#pragma once

// Writes it where the recording wants one. In a replay: takes the first one over; of the others each has to be what the
// machine is now, otherwise recorder::Different is thrown. Main thread, between two turns of the machine.
void exchangeCheckpoint();
