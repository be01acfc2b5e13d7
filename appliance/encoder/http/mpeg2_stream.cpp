#include "appliance/encoder/http/mpeg2_stream.h"

#include "appliance/encoder/codecs/gated_reader.h"
#include "appliance/encoder/http/wanted_channel.h"

namespace {

constexpr std::chrono::seconds firstPictureTime(5);
constexpr std::chrono::seconds pictureTime(5); // for the client to take one picture
constexpr std::chrono::milliseconds watchTime(250);

void sendPictures(HttpSession& session, GatedReader& reader, std::optional<GatedReader::Turn> turn) {
    Connection& connection = session.connection();
    for (; !session.device().stopping() && !connection.peerHasLeft(); turn = reader.next(watchTime)) {
        if (!turn)
            continue;
        switch (turn->step) {
        case FrameGate::Step::Cut:
            connection.abortOnClose();
            return;
        case FrameGate::Step::Hold:
            break;
        case FrameGate::Step::Repeat:
        case FrameGate::Step::Send:
            if (!connection.write({turn->unit->bytes}, in(pictureTime)))
                return;
            break;
        }
    }
}

} // namespace

void streamMpeg2(HttpSession& session) {
    Channel* const channel = wantedChannel(session);
    if (channel == nullptr) {
        replyNoSuchCamera(session);
        return;
    }
    GatedReader reader(*channel->mpeg2, session.device().faults);
    const std::optional<GatedReader::Turn> first = reader.next(firstPictureTime);
    if (!first) {
        session.reply({503, "text/plain", "there is no picture\n", {}});
        return;
    }
    session.beginStream(200);
    if (session.connection().write({"HTTP/1.1 200 OK\r\nServer: video-encoder\r\nContent-Type: video/mpeg\r\n"
                                    "Cache-Control: no-cache\r\nConnection: close\r\n\r\n"},
                                   in(pictureTime)) &&
        session.request().method != "HEAD")
        sendPictures(session, reader, first);
}
