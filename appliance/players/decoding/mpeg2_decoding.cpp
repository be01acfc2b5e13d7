#include "appliance/players/decoding/mpeg2_decoding.h"

#include "appliance/players/decoding/gst_start.h"

namespace player {

Mpeg2Chain chainOf(streams::Mpeg2Container container) {
    switch (container) {
    case streams::Mpeg2Container::transport:
        return {"tsdemux ! mpegvideoparse ! mpeg2dec name=decoder",
                "video/mpegts,systemstream=true,packetsize=188"};
    case streams::Mpeg2Container::program:
        return {"mpegpsdemux ! mpegvideoparse ! mpeg2dec name=decoder",
                "video/mpeg,mpegversion=2,systemstream=true"};
    case streams::Mpeg2Container::elementary:
        break;
    }
    return {"mpegvideoparse ! mpeg2dec name=decoder", "video/mpeg,mpegversion=2,systemstream=false"};
}

bool loadMpeg2Plugins() {
    return loadPlugins({"coreelements", "videoparsersbad", "mpeg2dec", "mpegtsdemux", "mpegpsdemux"});
}

} // namespace player
