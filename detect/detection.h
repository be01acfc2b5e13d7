// Auto-detection: what an encoder delivers and how its stream is reached.
//
// One detection works on one source entry and publishes what it finds in the source's status values; last of
// all "DetectionTrace", which tells what was asked and why it was decided so (trace.h). It blocks the main
// thread for up to several times "Decoder.AutoDetectTimeout" and is cut short by SIGUSR1.
#pragma once

#include "sources/source_entry.h"

// Detects the encoder of `entry`, publishing under `statusId`. True: came to an end, with detectedOK or with
// an error code. False: interrupted without a verdict, or the configured type is out of range. Main thread.
bool detectSource(SourceEntry& entry, int statusId);
