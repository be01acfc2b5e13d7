// Builds the text of an RTSP request. A pure function.
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
    std::string url;       // only the path, without scheme and host
    std::string extraLine; // "Transport: ..." or "Session: ...", without line end; "" for none
    std::string userName;
    std::string password;
    ConnectMode mode = CONNECT_HTTP; // modes 2 and 3 send the credentials
};

std::string buildRequest(const RtspRequest& request);

// Its name in the trace: method, URL and extra line, without credentials.
std::string requestName(const RtspRequest& request);

// The path of a source's stream on the encoder.
std::string mediaPath(int sourceNumber);

} // namespace detect
