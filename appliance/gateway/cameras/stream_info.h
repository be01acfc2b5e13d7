// What a camera's stream consists of.
#pragma once

#include "appliance/gateway/cameras/reason.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace gateway {

struct TrackInfo {
    std::string encodingName; // "H264", "PCMU"
    int payloadType = 0;
    int clockRate = 90000;
    std::string rtpmap; // values of the attributes, as in the camera's description; "": none
    std::string fmtp;

    bool operator==(const TrackInfo&) const = default;
};

struct StreamInfo {
    std::optional<TrackInfo> video; // nothing: whole JPEG pictures over HTTP
    std::optional<TrackInfo> sound;
    std::string transport; // "UDP", "TCP", "HTTP", for people; "" at this machine
    std::string
        encoded{}; // the camera's codec, when the video is decoded and encoded anew; "": it is handed on

    bool isPictures() const { return !video; }
    // " over TCP", "; its VP8 is encoded anew as H264", for people.
    std::string way() const {
        return (transport.empty() ? "" : " over " + transport) +
               (encoded.empty() ? "" : "; its " + encoded + " is encoded anew as " + video->encodingName);
    }
};

enum class Track { video, sound };

// What a session with a camera tells its owner, on the loop's thread. After `ended` nothing more comes. The owner must
// not destroy the session in a call.
struct SessionEvents {
    std::function<void(const StreamInfo& info)> opened;              // the camera sends from now on
    std::function<void(Track track, std::string_view bytes)> packet; // RTP, in order
    std::function<void(std::string_view jpeg)> picture;              // a whole one
    std::function<void()> pause;                                     // all that has arrived is handed over
    std::function<void(const Failure& failure)> ended;
};

} // namespace gateway
