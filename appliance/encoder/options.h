// The command line of `video-encoder`.
#pragma once

#include "appliance/encoder/access_unit.h"
#include "appliance/encoder/faults.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

// The ways in which the encoder hands out its pictures. Each can be switched off.
enum class Kind { Mjpeg, Mpeg2, Sdp, RtspUnicast, RtspMulticast, RtspTcp, RtspHttp };

// Ports: 0 asks for any free one.
struct Options {
    std::string address = "127.0.0.1"; // the one local address that is listened on
    std::uint16_t httpPort = 0;
    std::uint16_t rtspPort = 0;
    std::optional<std::uint16_t> httpsPort; // none: no TLS
    std::optional<std::uint16_t>
        controlPort; // none: no port for /faults and /requests that has no faults itself

    std::vector<std::string> inputs{"test"}; // one text per input, 1 to 64 of them
    std::string name = "Encoder";            // written into test pictures; several inputs are numbered
    int width = 720;                         // 64 to 1920, even
    int height = 576;                        // 48 to 1080, even
    int fps = 25;                            // 1 to 60
    int quality = 75;                        // of JPEG, 1 to 100
    int mark = 1;                            // the first input's number in the frame mark, 0 to 255
    bool markEverything = false;             // draws the mark over pictures that are not test pictures, too
    bool audio = false;

    std::set<Kind> kinds{Kind::Mjpeg};
    Codec codec = Codec::Mpeg4; // of RTSP: Mpeg4 or H264
    int keyInterval = 12;       // pictures from one key picture to the next, 1 to 250
    bool keyForNewcomer = true; // a new client makes the next picture a key picture
    int bitrate = 0;            // of the codecs, kilobits a second, to 50000; 0: an even quality
    std::string multicastGroup = "239.255.77.1"; // the first input's; the others follow
    std::uint16_t multicastPort = 5000;          // even, to 65000
    std::string track = "trackID=1";             // the track's name in RTSP
    bool decimalSessions = true;                 // RTSP session ids are decimal numbers

    int apiVersion = 2; // 1 to 9
    std::string model = "Network Video Encoder";
    int rotation = 0; // 0, 90, 180 or 270; only told, never done

    std::string user; // empty: no credentials are asked for
    std::string password;
    bool digest = false;
    std::string certificateFile; // both or none; none: a self-signed certificate is made at start
    std::string keyFile;

    FaultSet faults;
    int maxConnections = 64; // 1 to 4096, over all ports
    int verbosity = 0;

    bool offers(Kind kind) const { return kinds.contains(kind); }
    bool offersRtspPort() const {
        return offers(Kind::RtspUnicast) || offers(Kind::RtspMulticast) || offers(Kind::RtspTcp);
    }
    bool offersRtsp() const { return offersRtspPort() || offers(Kind::RtspHttp); }
};

struct CommandLine {
    std::optional<Options> options; // none: print `message` and exit with `exitStatus`
    int exitStatus = 0;             // 0 after --help and --version, 2 after a mistake
    std::string message;
};

CommandLine parseCommandLine(int argc, const char* const* argv);
