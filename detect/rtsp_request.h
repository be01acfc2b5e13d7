// The text of an RTSP request. A pure function.
#pragma once

#include <libcommon/network.h>

#include <string>

namespace detect {

// Indices into the table of method names.
enum RtspMethod : int {
    RTSP_DESCRIBE = 0,
    RTSP_SETUP = 1,
    RTSP_PLAY = 2,
    RTSP_TEARDOWN = 3,
    RTSP_OPTIONS = 4
};

struct RtspRequest {
    RtspMethod method = RTSP_DESCRIBE;
    int cseq = 0;
    std::string url;       // a path alone, without scheme and host
    std::string extraLine; // "Transport: ..." or "Session: ...", without line end; "" for none
    std::string userName;
    std::string password;
    ConnectMode mode = CONNECT_HTTP; // modes 2 and 3 send the credentials
};

std::string buildRequest(const RtspRequest& request);

// What the trace calls it: method, URL and extra line, no credentials.
std::string requestName(const RtspRequest& request);

// The path of a source's stream on the encoder.
std::string mediaPath(int sourceNumber);

} // namespace detect
