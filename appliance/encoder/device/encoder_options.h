// The command line of `video-encoder`.
#pragma once

#include "appliance/encoder/codecs/access_unit.h"
#include "appliance/encoder/faults/faults.h"
#include "appliance/serving/command_line.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

// The kinds of stream that the encoder can offer.
enum class Kind { Mjpeg, Mpeg2, Sdp, RtspUnicast, RtspMulticast, RtspTcp, RtspHttp };

// Port 0 means any free port.
struct Options {
    std::string address = "127.0.0.1";      // the local address to listen on
    std::uint16_t httpPort = 0;             // serves RTSP too
    std::uint16_t rtspPort = 0;             // one more port for RTSP
    std::optional<std::uint16_t> httpsPort; // nothing: no TLS
    // For /faults and /requests only; no fault affects it. Nothing: there is no control port.
    std::optional<std::uint16_t> controlPort;

    std::vector<std::string> inputs{"test"}; // 1 to 64, as in --input
    std::string name = "Encoder";            // shown in test pictures; with several inputs a number follows
    int width = 720;                         // 64 to 1920, even
    int height = 576;                        // 48 to 1080, even
    int fps = 25;                            // 1 to 60
    int quality = 75;                        // of JPEG, 1 to 100
    int mark = 1;                            // the first input's number in the frame mark, 0 to 255
    bool markEverything = false;             // draws the frame mark over all inputs, not only test pictures
    bool audio = false;

    std::set<Kind> kinds{Kind::Mjpeg};
    Codec codec = Codec::Mpeg4; // of RTSP: Mpeg4 or H264
    int keyInterval = 12;       // pictures from one key picture to the next, 1 to 600
    bool keyForNewcomer = true; // the next picture after a client joins is a key picture
    int bitrate = 0;            // of the codecs, kilobits per second, up to 50000; 0: constant quality
    std::string multicastGroup = "239.255.77.1"; // of the first input; each further input has the next group
    std::uint16_t multicastPort = 5000;          // even, up to 65000
    std::string track = "trackID=1";             // the name of the RTSP track
    bool decimalSessions = true;                 // RTSP session ids are decimal numbers

    int apiVersion = 2; // 1 to 9
    std::string model = "Network Video Encoder";
    int rotation = 0; // 0, 90, 180 or 270; only reported, pictures are not rotated

    std::string user; // empty: no credentials are needed
    std::string password;
    bool digest = false;
    bool onvif = false;          // be an ONVIF device
    std::string certificateFile; // both or none; none: a self-signed certificate is made
    std::string keyFile;

    FaultSet faults;
    int maxConnections = 64; // 1 to 4096, over all ports
    int verbosity = 0;

    bool offers(Kind kind) const { return kinds.contains(kind); }
    bool offersRtspPort() const { // RTSP on a port, not only through HTTP
        return offers(Kind::RtspUnicast) || offers(Kind::RtspMulticast) || offers(Kind::RtspTcp);
    }
    bool offersRtsp() const { return offersRtspPort() || offers(Kind::RtspHttp); }
};

struct CommandLine {
    std::optional<Options> options; // nothing: finish(end)
    CommandLineEnd end;
};

CommandLine parseCommandLine(int argc, const char* const* argv);
