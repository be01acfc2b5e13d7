#include "appliance/encoder/streams.h"

#include "appliance/encoder/audio.h"
#include "appliance/encoder/mjpeg_stream.h"
#include "appliance/encoder/mpeg2_stream.h"
#include "appliance/encoder/rtsp_http.h"

namespace {

void sendGuide(HttpSession& session) {
    const Channel* const channel = wantedChannel(session);
    if (channel == nullptr || !channel->guide) {
        session.reply({404, "text/plain", "there is no such camera\n", {}});
        return;
    }
    const Options& options = session.device().options;
    const std::optional<MulticastPlace>& audio = channel->guideAudio;
    session.reply(
        {200,
         "application/sdp",
         describeMulticast(options.name, options.address, *channel->guide, audio ? &*audio : nullptr),
         {}});
}

} // namespace

Channel* wantedChannel(const HttpSession& session) {
    const std::string_view query = session.request().query();
    std::string camera = queryField(query, "camera").value_or("1");
    if (camera == "quad" || queryField(query, "quad") == "1")
        camera = "0";
    const auto number = wholeNumber(camera);
    return number ? session.device().channel(*number) : nullptr;
}

bool serveStream(HttpSession& session) {
    const std::string_view path = session.request().path();
    const Options& options = session.device().options;
    if (path == "/vexo-cgi/mjpg/video.cgi" && options.offers(Kind::Mjpeg))
        streamMjpeg(session);
    else if (path == "/vexo-cgi/jpg/image.cgi" && options.offers(Kind::Mjpeg))
        sendStill(session);
    else if (path == "/vexo-cgi/mpeg2/video.cgi" && options.offers(Kind::Mpeg2))
        streamMpeg2(session);
    else if (path == "/vexo-cgi/audio/receive.cgi" && options.audio)
        streamAudio(session);
    else if (path == "/view/sdp/guide.sdp" && options.offers(Kind::Sdp))
        sendGuide(session);
    else
        return serveMediaPath(session);
    return true;
}
