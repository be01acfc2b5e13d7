#include "appliance/gateway/serving/description.h"

#include <libcommon/text.h>

namespace gateway {
namespace {

std::string media(const char* kind, const TrackInfo& track, const char* control) {
    std::string text = std::string("m=") + kind + " 0 RTP/AVP " + std::to_string(track.payloadType) + "\r\n";
    if (!track.rtpmap.empty())
        text += "a=rtpmap:" + libcommon::printable(track.rtpmap) + "\r\n";
    if (!track.fmtp.empty())
        text += "a=fmtp:" + libcommon::printable(track.fmtp) + "\r\n";
    return text + "a=control:" + control + "\r\n";
}

} // namespace

std::string describe(const StreamInfo& info, const std::string& name) {
    return "v=0\r\no=- 1 1 IN IP4 127.0.0.1\r\ns=" + libcommon::printable(name.empty() ? "-" : name) +
           "\r\nc=IN IP4 0.0.0.0\r\nt=0 0\r\na=control:*\r\n" + media("video", *info.video, videoTrack) +
           (info.sound ? media("audio", *info.sound, soundTrack) : "");
}

} // namespace gateway
