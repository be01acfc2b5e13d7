// Finding out what a camera is, for `decoderctl add`: connects, listens for some seconds, and prints what it found as lines
// "Key=value" on standard output. "Failure=..." alone says why the camera can't be played.
#pragma once

namespace gateway {

// Reads URL, user name and password as three lines from standard input. `connect` false: only the URL is read. Returns the
// exit status: 0, or 1 after a failure.
int probeCamera(bool connect);

} // namespace gateway
