#include "appliance/encoder/server/routes.h"

#include "appliance/encoder/http/admission.h"
#include "appliance/encoder/http/audio_stream.h"
#include "appliance/encoder/http/control_pages.h"
#include "appliance/encoder/http/guide_page.h"
#include "appliance/encoder/http/mjpeg_stream.h"
#include "appliance/encoder/http/mpeg2_stream.h"
#include "appliance/encoder/http/parameter_cgi.h"
#include "appliance/encoder/onvif/onvif_page.h"
#include "appliance/encoder/server/rtsp_over_http.h"

namespace {

// Live pictures of all inputs, for a browser.
std::string frontPage(const Options& options) {
    std::string page = "<!DOCTYPE html><title>video-encoder</title><body style=\"background:#222\">\n";
    for (std::size_t i = 1; i <= options.inputs.size(); ++i)
        page +=
            "<img src=\"/vexo-cgi/mjpg/video.cgi?camera=" + std::to_string(i) + "&resolution=352x288\">\n";
    return page;
}

// False, with nothing sent, if the request names no stream that this encoder offers.
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
        serveGuide(session);
    else
        return false;
    return true;
}

bool isKnownMethod(const std::string& method) {
    return method == "GET" || method == "HEAD" || method == "POST";
}

} // namespace

void serveRequest(HttpSession& session, RtspServer* rtsp, const OnvifFacts* onvif) {
    if (serveControlPage(session))
        return;
    if (session.role() == PortRole::Control) {
        session.reply({404, "text/plain", "only /faults and /requests are here\n", {}});
        return;
    }
    const FaultSet faults = session.device().faults.current();
    if (!isAdmitted(session, faults))
        return;
    if (onvif != nullptr && isOnvifPath(session.request().path()))
        serveOnvif(session, *onvif);
    else if (!isKnownMethod(session.request().method))
        session.reply({405, "text/plain", "GET, HEAD and POST are known\n", "Allow: GET, HEAD, POST\r\n"});
    else if (session.request().path() == "/")
        session.reply({200, "text/html", frontPage(session.device().options), {}});
    else if (!serveCgi(session, faults) && !serveStream(session) &&
             !(rtsp != nullptr && serveMediaPath(session, *rtsp)))
        session.reply({404, "text/plain", "not found\n", {}});
}
