#include "appliance/players/decoding/rtp_decoding.h"

#include "appliance/players/decoding/gst_start.h"

#include <cstddef>
#include <sstream>

namespace player {
namespace {

struct Known {
    const char* encodingName;
    const char* elements;
    const char* plugins;
};

constexpr Known videos[] = {
    {"JPEG", "rtpjpegdepay ! jpegdec max-errors=-1", "jpeg"},
};

constexpr Known sounds[] = {
    {"PCMU", "rtppcmudepay ! mulawdec", "mulaw"},
    {"PCMA", "rtppcmadepay ! alawdec", "alaw"},
    {"MPA", "rtpmpadepay ! mpegaudioparse ! mpg123audiodec", "audioparsers mpg123"},
    {"MPEG4-GENERIC", "rtpmp4gdepay ! aacparse ! avdec_aac", "audioparsers libav"},
    {"MP4A-LATM", "rtpmp4adepay ! aacparse ! avdec_aac", "audioparsers libav"},
    {"G726-32", "rtpg726depay ! avdec_g726", "libav"},
};

template<std::size_t Size>
RtpChain chainIn(const Known (&known)[Size], const std::string& encodingName) {
    for (const Known& one : known)
        if (encodingName == one.encodingName)
            return {one.elements, one.plugins};
    return {};
}

} // namespace

const char* const reordering = "rtpjitterbuffer latency=80 drop-on-latency=true";

RtpChain videoChainOf(const std::string& encodingName) {
    return chainIn(videos, encodingName);
}

RtpChain soundChainOf(const std::string& encodingName) {
    return chainIn(sounds, encodingName);
}

bool loadRtpPlugins(const RtpChain& chain) {
    if (!loadPlugins({"coreelements", "rtp"}))
        return false;
    std::istringstream names(chain.plugins);
    for (std::string name; names >> name;)
        if (!loadPlugins({name.c_str()}))
            return false;
    return true;
}

} // namespace player
