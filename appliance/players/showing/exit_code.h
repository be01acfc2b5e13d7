// The exit status of a player: tells the supervisor why it ended.
#pragma once

namespace player {

enum class ExitCode : int {
    asked = 0,         // SIGHUP, SIGINT, SIGTERM, or the supervisor is gone
    usage = 2,         // a mistake in the command line
    noPicture = 11,    // no connection or no first picture in time
    endOfStream = 14,  // the encoder ended the stream
    noNewPicture = 23, // the stream was open and no new picture came; or it stood still and may not
    noRelease = 25,    // announced at a barrier and not released in time
};

} // namespace player
