#include "appliance/encoder/multicast/guide_description.h"

namespace {

std::string sessionLines(const std::string& name, const std::string& localAddress) {
    return "v=0\r\no=- 1 1 IN IP4 " + localAddress + "\r\ns=" + (name.empty() ? "-" : name) + "\r\nt=0 0\r\n";
}

} // namespace

std::string describeMulticast(const std::string& name, const std::string& localAddress,
                              const MulticastPlace& video, const MulticastPlace* audio) {
    std::string text = sessionLines(name, localAddress) + "m=video " + std::to_string(video.port) +
                       " RTP/AVP 32\r\nc=IN IP4 " + video.group + "/1\r\na=rtpmap:32 MPV/90000\r\n";
    if (audio != nullptr)
        text += "m=audio " + std::to_string(audio->port) + " RTP/AVP 14\r\nc=IN IP4 " + audio->group +
                "/1\r\na=rtpmap:14 MPA/90000\r\n";
    return text;
}
