#include "appliance/encoder/rtsp_http.h"

#include "appliance/encoder/rtsp_session.h"

#include <array>

namespace {

constexpr const char* cookieHeader = "x-sessioncookie";
constexpr std::chrono::seconds replyTime(5);
constexpr std::chrono::minutes silentTime(10); // between two requests in a tunnel

void runTunnel(HttpSession& session, const std::string& cookie) {
    Device& device = session.device();
    const std::shared_ptr<Tunnel> tunnel = device.tunnels.open(cookie);
    if (!tunnel) {
        session.reply({503, "text/plain", "this tunnel cannot be opened\n", {}});
        return;
    }
    session.beginStream(200);
    if (session.connection().write({"HTTP/1.0 200 OK\r\nServer: video-encoder\r\nConnection: close\r\n"
                                    "Cache-Control: no-store\r\nPragma: no-cache\r\n"
                                    "Content-Type: application/x-rtsp-tunnelled\r\n\r\n"},
                                   in(replyTime)))
        RtspSession(device, session.connection(), session.number(), tunnel.get()).run();
    device.tunnels.close(cookie);
    tunnel->close();
}

// No answer is ever sent to this half.
void feedTunnel(HttpSession& session, const std::string& cookie) {
    const std::shared_ptr<Tunnel> tunnel = session.device().tunnels.find(cookie);
    if (!tunnel) {
        session.reply({404, "text/plain", "there is no such tunnel\n", {}});
        return;
    }
    session.beginStream(200);
    std::array<char, 4096> buffer{};
    bool good = tunnel->push(session.takePending());
    while (good && !session.device().stopping()) {
        const long count = session.connection().read(buffer.data(), buffer.size(), in(silentTime));
        good = count > 0 && tunnel->push({buffer.data(), static_cast<std::size_t>(count)});
    }
}

} // namespace

bool isTunnelRequest(const Request& request) {
    return request.header(cookieHeader).has_value() && mediaPathOf(request.path()).has_value();
}

bool serveMediaPath(HttpSession& session) {
    const Request& request = session.request();
    const std::optional<MediaPath> path = mediaPathOf(request.path());
    if (!path || !session.device().options.offers(Kind::RtspHttp))
        return false;
    if (isTunnelRequest(request)) {
        const std::string cookie(*request.header(cookieHeader));
        if (request.method == "POST")
            feedTunnel(session, cookie);
        else
            runTunnel(session, cookie);
        return true;
    }
    const std::string text =
        descriptionOf(session.device(), path->channel, session.connection().localAddress());
    if (!text.empty())
        session.reply({200, "application/sdp", text, {}});
    else if (session.device().channel(path->channel) == nullptr)
        return false;
    else
        session.reply({503, "text/plain", "there is no picture\n", {}});
    return true;
}
