// The search for two neighbouring free UDP ports.
//
// Two ranges, each with a counter of its own that goes on from call to call. Nothing keeps the ports reserved
// after the test. Main thread.
#pragma once

// A port p with p and p+1 free, or -1 after 256 tries.
int allocatePlayerPortPair(); // 20000, 20004, ... 40000, and round
int allocateProbePortPair();  // 10000, 10002, ... 12000, and round
