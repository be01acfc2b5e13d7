// Auto-detection: what an encoder delivers and how its stream is reached.
//
// One detection works on one source entry and publishes its results in the source's status values,
// "DetectionTrace" last (trace.h). It blocks the main thread for up to several times "Decoder.AutoDetectTimeout".
// SIGUSR1 interrupts it.
#pragma once

#include "sources/source_entry.h"

// Detects the encoder of `entry` and publishes under `statusId`. True: the detection ended, with detectedOK or with an
// error code. False: it was interrupted without a verdict, or the configured type is out of range. Main thread.
bool detectSource(SourceEntry& entry, int statusId);
