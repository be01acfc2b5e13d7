// The video-select button: a thread reads the button file over and over and sends EID_BUTTON for presses and
// holds.
//
// The button file is /proc/sys/dev/button_videoselect below the appliance root. '1' is a short press, '2' a
// held button, everything else nothing. It may be
// - a kernel driver's file, whose read waits until the button's state changes;
// - a FIFO, on stock Linux: made before the supervisor starts, one byte is written per press, and exactly one
//   event comes of it. Who presses opens it with O_WRONLY | O_NONBLOCK: ENXIO then says that no supervisor
//   reads it. Bytes written while "Buttons.VideoSelectEnabled" is not "yes" are read and dropped;
// - a plain file, whose content is the button's state: looked at twenty times a second, each look at '1' or
//   '2' sends an event.
#pragma once

#include <libcommon/params.h>

#include <string>

// Starts the thread. False, with a log line, when it could not be created. When the button file can't be
// opened the thread ends the whole process with status 1.
bool startButtonThread();

// Internals shared with the tests.
namespace button {

inline constexpr long pauseNanoseconds = 50000000;

// The opened button file, or -1 with errno. Never waits for a FIFO's other end.
int openFile(const std::string& path);

// One turn of the thread: reads the file once and acts on what it says, then pauses unless the read waited
// for something to report, so that no kind of file makes the thread spin.
void turn(int fd, const ParamWrapper& parameters);

} // namespace button
