#include "bench/screen/streams.h"

#include <iterator>
#include <sstream>

namespace bench {
namespace {

bool isRtsp(const std::string& kind) {
    return kind.starts_with("rtsp-");
}

} // namespace

const std::vector<std::string>& kindsOfStream() {
    static const std::vector<std::string> kinds{"mjpeg",          "mpeg2",    "sdp",      "rtsp-unicast",
                                                "rtsp-multicast", "rtsp-tcp", "rtsp-http"};
    return kinds;
}

std::string urlOf(const std::string& kind, const std::string& host) {
    if (kind == "mjpeg")
        return "http://" + host + "/vexo-cgi/mjpg/video.cgi";
    if (kind == "mpeg2")
        return "http://" + host + "/vexo-cgi/mpeg2/video.cgi";
    if (kind == "sdp")
        return "http://" + host + "/view/sdp/guide.sdp";
    return "rtsp://" + host + (kind == "rtsp-http" ? ":80" : "") + "/mpeg4/1/media.orv";
}

std::string transportOf(const std::string& kind) {
    if (kind == "rtsp-unicast")
        return "udp";
    if (kind == "rtsp-multicast")
        return "udp_multicast";
    return isRtsp(kind) ? kind.substr(5) : "";
}

std::string pipelineOf(const std::string& kind, const std::string& codec, const std::string& host) {
    const std::string url = urlOf(kind, host);
    if (kind == "mjpeg")
        return "souphttpsrc is-live=true location=" + url + " ! multipartdemux ! jpegdec";
    if (kind == "mpeg2")
        return "souphttpsrc is-live=true location=" + url + " ! mpegvideoparse ! avdec_mpeg2video";
    if (!isRtsp(kind))
        return "";
    const std::string transport = transportOf(kind) == "udp_multicast" ? "udp-mcast" : transportOf(kind);
    const std::string decode = codec == "h264" ? "rtph264depay ! h264parse ! avdec_h264"
                                               : "rtpmp4vdepay ! mpeg4videoparse ! avdec_mpeg4";
    return "rtspsrc latency=0 protocols=" + transport + " location=" + url + " ! " + decode;
}

std::vector<std::string> wordsOf(const std::string& text) {
    std::istringstream words(text);
    return {std::istream_iterator<std::string>(words), {}};
}

} // namespace bench
