#include "appliance/encoder/server/rtsp_over_http.h"

#include "appliance/serving/media_path.h"

namespace {

void serveDescription(HttpSession& session, RtspServer& rtsp, int channel) {
    const std::string text = rtsp.describe(channel, session.connection().localAddress());
    if (text.empty())
        session.reply({503, "text/plain", "there is no picture\n", {}});
    else
        session.reply({200, "application/sdp", text, {}});
}

} // namespace

bool serveMediaPath(HttpSession& session, RtspServer& rtsp) {
    Device& device = session.device();
    const Request& request = session.request();
    const std::optional<int> channel = mediaChannelOf(request.path());
    if (!channel || !device.options.offers(Kind::RtspHttp) || device.channel(*channel) == nullptr)
        return false;
    if (!isTunnelRequest(request)) {
        serveDescription(session, rtsp, *channel);
        return true;
    }
    session.beginStream(200);
    const bool down = request.method != "POST";
    rtsp.serveTunnel(session.connection(), session.number(), session.takeAll(),
                     down ? channel : std::nullopt);
    return true;
}
