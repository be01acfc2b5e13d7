// A player: one process that shows one stream, from its command line to its exit status.
//
// Its threads: the main thread waits for signals and for news and decides how the player ends; the stream's
// threads receive and decode and hand pictures to the Presenter; the SupervisorLink's thread meets the
// supervisor. The process ends by _exit() on the main thread, without unwinding any of them: the supervisor
// is waiting for it.
//
// It ends with 0 on SIGINT and SIGTERM at once, on SIGHUP after the second meeting at barrier 1, and when the
// supervisor is gone; with 11, 14 and 23 as ExitCode says.
#pragma once

#include "appliance/players/player_options.h"

#include <functional>
#include <gst/gst.h>
#include <string>

namespace player {

// Where a stream delivers. Any thread.
struct StreamSink {
    std::function<void(GstSample*)> picture;       // a decoded picture; stays the caller's
    std::function<void(const std::string&)> ended; // the stream is over, and why, for the log
    std::function<bool()> showing;                 // the picture is on the screen, so sound may be heard
    std::function<void()> awaitShowing;            // waits until it is
};

// A running stream: called when the player ends, to part from the encoder in an orderly way; may be empty. It
// gets a fifth of a second.
using PartFromEncoder = std::function<void()>;

// Starts to receive and decode, in threads of its own, and returns. False when it can't even start, with a
// log line.
using StartStream = std::function<bool(const PlayerOptions&, const StreamSink&, PartFromEncoder&)>;

// The whole main() of a player of that kind. Does not return once the command line is good.
int runPlayer(Kind kind, int argc, char** argv, const StartStream& startStream);

} // namespace player
