// A player's command line.
//
// The supervisor passes short options only; --help lists them. The value of an option is the next argument,
// even when it begins with a dash, because a password may begin with one.
#pragma once

#include "appliance/screen/video_mode.h"
#include "appliance/streams/rtsp_source.h"

#include <cstdint>
#include <optional>
#include <string>

namespace player {

enum class Kind { mjpeg, unicast, multicast, mpeg4 };

// How an interlaced picture is shown.
enum class Interlace {
    asItIs,    // "p", or an empty value
    automatic, // "a": smoothed when it shows the combs of two fields
    smoothed,  // "i": always smoothed
};

struct PlayerOptions {
    Kind kind = Kind::mjpeg;
    std::string user; // "": no credentials
    std::string password;
    bool https = false;
    screen::VideoMode mode = screen::VideoMode::pal;
    int source = 0; // source index, stored with each picture
    bool verbose = false;
    int patienceMs = 10'000; // limit for the first picture and between two pictures; 0: none
    int releaseMs = 60'000;  // limit for the release from a barrier; 0: none
    bool audio = false;
    std::string host;
    std::uint16_t port = 0;
    std::string streamOptions; // the value of -t
    bool turned = false;       // by 180 degrees
    Interlace interlace = Interlace::asItIs;
    std::uint16_t udpPort = 0; // first port of the pair for RTP and RTCP; 0: any
    int sourceNumber = 1;      // the encoder's input; 0: the quad view
    streams::RtspTransport transport = streams::RtspTransport::unicast;
    bool withCredentials = false; // mpeg4: the connect mode requires them
    std::string audioHost;        // multicast: "": no audio
    std::uint16_t audioPort = 0;
    bool alone = false; // without a supervisor: no barriers
};

struct ParsedOptions {
    std::optional<PlayerOptions> options; // empty: the program ends with `status`
    int status = 0;
};

// Parses the command line of that kind of player. --help and --version print to standard output, a mistake is
// reported on standard error with status 2. The user name and the password are overwritten in `argv`, so that
// the process list doesn't show them.
ParsedOptions parseOptions(Kind kind, int argc, char** argv);

const char* programName(Kind kind);

} // namespace player
