#include "detect/rtsp_request.h"

namespace detect {
namespace {

constexpr const char* methodNames[] = {"DESCRIBE", "SETUP", "PLAY", "TEARDOWN", "OPTIONS"};

bool sendsCredentials(const RtspRequest& request) {
    return request.mode == CONNECT_HTTP_AUTH || request.mode == CONNECT_HTTPS;
}

// The URL in the request line. SETUP always asks for track 1.
std::string target(const RtspRequest& request) {
    switch (request.method) {
    case RTSP_OPTIONS:
        return "*";
    case RTSP_SETUP:
        return request.url + "/trackID=1";
    case RTSP_DESCRIBE:
    case RTSP_PLAY:
    case RTSP_TEARDOWN:
        break;
    }
    return request.url;
}

std::string methodHeader(const RtspRequest& request) {
    switch (request.method) {
    case RTSP_DESCRIBE:
        return "Accept: application/sdp\r\n";
    case RTSP_SETUP:
        return request.extraLine + "\r\n";
    case RTSP_PLAY:
    case RTSP_TEARDOWN:
        return request.extraLine.empty() ? "" : request.extraLine + "\r\n";
    case RTSP_OPTIONS:
        break;
    }
    return "";
}

} // namespace

std::string buildRequest(const RtspRequest& request) {
    std::string text = std::string(methodNames[request.method]) + " " + target(request) + " RTSP/1.0\r\n";
    text += "CSeq: " + std::to_string(request.cseq) + "\r\n";
    if (sendsCredentials(request)) {
        const std::string credentials = request.userName + ":" + request.password;
        text += "Authorization: Basic " + base64encode(credentials.data(), credentials.size()) + "\r\n";
    }
    return text + methodHeader(request) + "\r\n";
}

std::string requestName(const RtspRequest& request) {
    std::string name = std::string(methodNames[request.method]) + " " + target(request);
    if (sendsCredentials(request))
        name += " with credentials";
    return request.extraLine.empty() ? name : name + ", " + request.extraLine;
}

std::string mediaPath(int sourceNumber) {
    return "/mpeg4/" + (sourceNumber == 0 ? "quad" : std::to_string(sourceNumber)) + "/media.orv";
}

} // namespace detect
