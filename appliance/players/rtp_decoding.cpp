#include "appliance/players/rtp_decoding.h"

#include "appliance/players/gst_start.h"

#include <cstddef>
#include <gst/gst.h>
#include <sstream>

namespace player {
namespace {

struct Known {
    const char* encodingName;
    const char* elements;
    const char* plugins;
};

// One thread a decoder: frame threads would add a picture of delay each.
constexpr Known videos[] = {
    {"H264",
     "rtph264depay wait-for-keyframe=true ! h264parse ! avdec_h264 name=decoder max-threads=1 "
     "output-corrupt=false",
     "videoparsersbad libav"},
    {"H265", "rtph265depay ! h265parse ! avdec_h265 name=decoder max-threads=1 output-corrupt=false",
     "videoparsersbad libav"},
    {"MP4V-ES",
     "rtpmp4vdepay ! mpeg4videoparse ! avdec_mpeg4 name=decoder max-threads=1 output-corrupt=false",
     "videoparsersbad libav"},
    {"MPV", "rtpmpvdepay ! mpegvideoparse ! mpeg2dec name=decoder", "videoparsersbad mpeg2dec"},
    {"MP2T", "rtpmp2tdepay ! tsdemux ! mpegvideoparse ! mpeg2dec name=decoder",
     "videoparsersbad mpeg2dec mpegtsdemux"},
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

std::string caps(const char* media, int payloadType, int clockRate, const char* encodingName) {
    return std::string("application/x-rtp,media=") + media + ",payload=" + std::to_string(payloadType) +
           ",clock-rate=" + std::to_string(clockRate) + ",encoding-name=" + encodingName;
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
    if (!loadPlugins({"coreelements", "rtp", "rtpmanager"}))
        return false;
    std::istringstream names(chain.plugins);
    for (std::string name; names >> name;)
        if (!loadPlugins({name.c_str()}))
            return false;
    return true;
}

std::string capsOfPayloadType(int type) {
    switch (type) {
    case 0:
        return caps("audio", type, 8000, "PCMU");
    case 8:
        return caps("audio", type, 8000, "PCMA");
    case 14:
        return caps("audio", type, 90000, "MPA");
    case 26:
        return caps("video", type, 90000, "JPEG");
    case 32:
        return caps("video", type, 90000, "MPV");
    case 33:
        return caps("video", type, 90000, "MP2T");
    default:
        return "";
    }
}

std::string capsOfPacket(std::string_view packet) {
    constexpr std::size_t headerBytes = 12;
    if (packet.size() <= headerBytes || (static_cast<std::uint8_t>(packet[0]) >> 6) != 2)
        return "";
    const int type = static_cast<std::uint8_t>(packet[1]) & 0x7f;
    if (type < 96)
        return capsOfPayloadType(type);
    // Transport packets begin with 0x47 and are 188 bytes long; MPEG-2 video of its own otherwise.
    const std::string_view payload = packet.substr(headerBytes);
    const bool transport = payload.size() % 188 == 0 && payload[0] == 0x47;
    return caps("video", type, 90000, transport ? "MP2T" : "MPV");
}

std::string encodingNameIn(const std::string& caps) {
    GstCaps* parsed = gst_caps_from_string(caps.c_str());
    const bool any = parsed != nullptr && gst_caps_get_size(parsed) > 0;
    const char* name =
        any ? gst_structure_get_string(gst_caps_get_structure(parsed, 0), "encoding-name") : nullptr;
    std::string found = name == nullptr ? "" : name;
    if (parsed != nullptr)
        gst_caps_unref(parsed);
    return found;
}

} // namespace player
