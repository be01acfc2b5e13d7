// Searches for two adjacent free UDP ports.
//
// There are two ranges, each with a counter that keeps its value between calls. The ports are not reserved after the
// test. Main thread.
#pragma once

// Returns a port p such that p and p + 1 are free, or -1 after 256 tries.
int allocatePlayerPortPair(); // 20000, 20004, ... 40000, then 20000 again
int allocateProbePortPair();  // 10000, 10002, ... 12000, then 10000 again
