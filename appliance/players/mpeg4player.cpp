// mpeg4player: MPEG-4 or H.264 over RTSP: unicast, multicast, on the connection itself, or tunnelled over
// HTTP.
#include "appliance/players/gst_start.h"
#include "appliance/players/http_stream.h"
#include "appliance/players/player.h"
#include "appliance/players/rtp_decoding.h"
#include "appliance/players/rtsp_session.h"

#include <thread>

namespace player {
namespace {

bool startMpeg4(const PlayerOptions& options, const StreamSink& sink, PartFromEncoder& part) {
    if (!startGStreamer({"app"}))
        return false;
    startHttp();
    auto* session = new RtspSession(options, sink);
    part = [session] { session->part(); };
    // The decoders' library is large: it is loaded while the encoder is being asked.
    std::thread([] { loadRtpPlugins(videoChainOf("MP4V-ES")); }).detach();
    std::thread([session] { session->run(); }).detach();
    return true;
}

} // namespace
} // namespace player

int main(int argc, char** argv) {
    return player::runPlayer(player::Kind::mpeg4, argc, argv, player::startMpeg4);
}
