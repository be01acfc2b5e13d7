#include "appliance/encoder/streams.h"

#include "appliance/encoder/audio.h"
#include "appliance/encoder/mjpeg_stream.h"

bool serveStream(HttpSession& session) {
    const std::string_view path = session.request().path();
    const Options& options = session.device().options;
    if (path == "/vexo-cgi/mjpg/video.cgi" && options.offers(Kind::Mjpeg)) {
        streamMjpeg(session);
        return true;
    }
    if (path == "/vexo-cgi/jpg/image.cgi" && options.offers(Kind::Mjpeg)) {
        sendStill(session);
        return true;
    }
    if (path == "/vexo-cgi/audio/receive.cgi" && options.audio) {
        streamAudio(session);
        return true;
    }
    return false;
}
