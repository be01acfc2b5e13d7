// A player: one process that shows one stream, from its command line to its exit status.
//
// The main thread waits for signals and for the other threads' reports, and decides how the player ends. The
// stream's threads receive and decode, and pass pictures to the Presenter. The SupervisorLink's thread meets
// the supervisor at the barriers. The process ends with _exit() on the main thread and stops no other thread
// first: the supervisor waits for the exit.
//
// The exit status is 0 after SIGINT and SIGTERM, after SIGHUP and the second release from barrier 1, and when
// the supervisor is gone. ExitCode lists the others.
#pragma once

#include "appliance/players/decoding/stream_sink.h"
#include "appliance/players/showing/player_options.h"

#include <functional>

namespace player {

// What is left to do when the player ends, each on its own thread. May be empty.
struct Endings {
    std::function<void()> session; // ends the session with the encoder; it has 200 ms
    std::function<void()> sound;   // fades the sound out; it has 400 ms
};

// Starts threads that receive and decode, and returns. The arguments live until the process ends. False with a
// log line when the stream can't be started.
using StartStream = std::function<bool(const PlayerOptions&, const StreamSink&, Endings&)>;

// The main() of a player of that kind. Returns only after --help, --version or a mistake in the command
// line; otherwise it ends the process.
int runPlayer(Kind kind, int argc, char** argv, const StartStream& startStream);

} // namespace player
