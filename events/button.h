// The video-select button: a thread reads the button file in a loop and sends EID_BUTTON for presses and holds.
//
// The button file is /proc/sys/dev/button_videoselect below the appliance root. '1' is a short press, '2' is a held
// button, anything else is ignored. The file may be
// - a kernel driver's file, whose read waits until the button's state changes;
// - a FIFO, on stock Linux. It must exist before the supervisor starts. One byte written to it is one press and
//   sends exactly one event. Writers open it with O_WRONLY | O_NONBLOCK; ENXIO then means that no supervisor reads
//   it. Bytes written while "Buttons.VideoSelectEnabled" is not "yes" are read and dropped;
// - a plain file that holds the button's state. It is read twenty times a second, and each read of '1' or '2' sends
//   an event.
#pragma once

#include <libcommon/params.h>

#include <string>

// Starts the thread. False, with a log line, when it can't be created. When the button file can't be opened, the
// thread ends the whole process with status 1.
bool startButtonThread();

// Internals shared with the tests.
namespace button {

inline constexpr long pauseNanoseconds = 50000000;

// Opens the button file. -1 with errno. Never waits for a FIFO's writer.
int openFile(const std::string& path);

// One pass of the thread: reads the file once and sends the event, if there is one. Pauses when the read returned at
// once without a new press, so that no kind of file makes the thread spin.
void turn(int fd, const ParamWrapper& parameters);

} // namespace button
