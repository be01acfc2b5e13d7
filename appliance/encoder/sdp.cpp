#include "appliance/encoder/sdp.h"

#include <algorithm>

namespace {

std::string sessionLines(const std::string& name, const std::string& localAddress) {
    return "v=0\r\no=- 1 1 IN IP4 " + localAddress + "\r\ns=" + (name.empty() ? "-" : name) + "\r\nt=0 0\r\n";
}

std::string formatLines(Codec codec, const std::string& key) {
    switch (codec) {
    case Codec::Mpeg4: {
        const std::string config = mpeg4Config(key);
        // The profile and level stand right after the first start code.
        const bool known = config.starts_with("000001B0") && config.size() >= 10;
        const int level = known ? std::stoi(config.substr(8, 2), nullptr, 16) : 1;
        return "a=rtpmap:96 MP4V-ES/90000\r\na=fmtp:96 profile-level-id=" + std::to_string(level) +
               ";config=" + config + "\r\n";
    }
    case Codec::H264:
        return "a=rtpmap:96 H264/90000\r\na=fmtp:96 packetization-mode=1;profile-level-id=" +
               h264ProfileLevel(key) + ";sprop-parameter-sets=" + h264ParameterSets(key) + "\r\n";
    case Codec::Mpeg2:
        return "a=rtpmap:32 MPV/90000\r\n";
    }
    return {};
}

} // namespace

std::string describeRtsp(Codec codec, const AccessUnit& key, const std::string& name,
                         const std::string& localAddress, const std::string& track, int fps) {
    return sessionLines(name, localAddress) + "a=control:*\r\na=range:npt=now-\r\nm=video 0 RTP/AVP 96\r\n" +
           "c=IN IP4 0.0.0.0\r\n" + formatLines(codec, key.bytes) + "a=framerate:" + std::to_string(fps) +
           "\r\na=control:" + track + "\r\n";
}

std::string describeMulticast(const std::string& name, const std::string& localAddress,
                              const MulticastPlace& video, const MulticastPlace* audio) {
    std::string text = sessionLines(name, localAddress) + "m=video " + std::to_string(video.port) +
                       " RTP/AVP 32\r\nc=IN IP4 " + video.group + "/1\r\na=rtpmap:32 MPV/90000\r\n";
    if (audio != nullptr)
        text += "m=audio " + std::to_string(audio->port) + " RTP/AVP 14\r\nc=IN IP4 " + audio->group +
                "/1\r\na=rtpmap:14 MPA/90000\r\n";
    return text;
}
