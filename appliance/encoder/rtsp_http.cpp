#include "appliance/encoder/rtsp_http.h"

#include "appliance/encoder/rtsp_server.h"

bool isTunnelRequest(const Request& request) {
    return request.header("x-sessioncookie").has_value() && mediaChannelOf(request.path()).has_value();
}

bool serveMediaPath(HttpSession& session) {
    Device& device = session.device();
    const Request& request = session.request();
    const std::optional<int> channel = mediaChannelOf(request.path());
    if (!channel || !device.options.offers(Kind::RtspHttp) || device.channel(*channel) == nullptr)
        return false;
    if (!isTunnelRequest(request)) {
        const std::string text = device.rtsp()->describe(*channel, session.connection().localAddress());
        if (text.empty())
            session.reply({503, "text/plain", "there is no picture\n", {}});
        else
            session.reply({200, "application/sdp", text, {}});
        return true;
    }
    if (session.connection().underTls()) {
        session.reply({501, "text/plain", "tunnels go through the HTTP port\n", {}});
        return true;
    }
    session.beginStream(200);
    const bool down = request.method != "POST";
    device.rtsp()->serveTunnel(session.connection(), session.number(), session.takeAll(),
                               down ? channel : std::nullopt);
    return true;
}
