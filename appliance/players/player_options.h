// A player's command line.
//
// The supervisor passes short options only; people get the same with --help. An option's value is the next
// argument whatever it looks like, so that a password may begin with a dash.
#pragma once

#include "appliance/screen/video_mode.h"

#include <cstdint>
#include <optional>
#include <string>

namespace player {

enum class Kind { mjpeg, unicast, multicast, mpeg4 };

// How an interlaced picture is treated.
enum class Interlace {
    asItIs,    // "p", or nothing
    automatic, // "a": smoothed where it shows the combs of two fields
    smoothed,  // "i": always
};

// How an MPEG-4 encoder is talked to.
enum class Transport { unicast, multicast, tcp, http };

struct PlayerOptions {
    Kind kind = Kind::mjpeg;
    std::string user; // "" no credentials
    std::string password;
    bool https = false;
    screen::VideoMode mode = screen::VideoMode::pal;
    int source = 0; // source index, recorded with each picture
    bool verbose = false;
    int patienceMs = 10'000; // for the first picture, and for a picture that stands still; 0 without end
    bool audio = false;
    std::string host;
    std::uint16_t port = 0;
    std::string streamOptions; // as given after -t
    bool turned = false;       // by 180 degrees
    Interlace interlace = Interlace::asItIs;
    std::uint16_t udpPort = 0; // first of the pair to receive RTP and RTCP on; 0: any
    int sourceNumber = 1;      // on the encoder; 0 the quad view
    Transport transport = Transport::unicast;
    bool withCredentials = false; // mpeg4: the connect mode asks for them
    std::string audioHost;        // multicast: "" no audio
    std::uint16_t audioPort = 0;
    bool alone = false; // without a supervisor: no barriers
};

struct ParsedOptions {
    std::optional<PlayerOptions> options; // nothing: the program ends with `status`
    int status = 0;
};

// Reads the command line of that kind of player. --help and --version write to standard output, a mistake to
// standard error with status 2. The user's name and password are wiped from `argv` and so from what other
// users see of the process.
ParsedOptions parseOptions(Kind kind, int argc, char** argv);

const char* programName(Kind kind);

} // namespace player
