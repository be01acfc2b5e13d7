// The supervisor's standard streams.
//
// The program that starts the supervisor may have closed some of descriptors 0 to 2, and may close the other end of the
// others at any time. Neither may harm an unattended decoder.
#pragma once

// Opens those of descriptors 0 to 2 that are closed on /dev/null. Without this a file of ours would become
// standard output, and the trace lines would be written into it: into the button's FIFO, for example, which
// reads them as presses. Call it before anything else opens a file.
void fillStandardStreams();

// From here on a write to a pipe or socket without a reader fails with EPIPE instead of ending the process.
// A handler, not SIG_IGN: exec resets it, so that players and shell commands get the default back. Main
// thread; all other threads block the signal.
void surviveBrokenPipes();
