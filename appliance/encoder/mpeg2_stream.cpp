#include "appliance/encoder/mpeg2_stream.h"

#include "appliance/encoder/codec_stream.h"
#include "appliance/encoder/frame_gate.h"
#include "appliance/encoder/streams.h"

namespace {

constexpr std::chrono::seconds firstPictureTime(5);
constexpr std::chrono::seconds pictureTime(5); // for a client to take one picture
constexpr std::chrono::milliseconds watchTime(250);

void sendPictures(HttpSession& session, CodecReader& reader, AccessUnitPtr unit) {
    Connection& connection = session.connection();
    FrameGate gate;
    AccessUnitPtr lastKey;
    for (; !session.device().stopping() && !connection.peerHasLeft(); unit = reader.next(watchTime)) {
        if (!unit)
            continue;
        const AccessUnit* sent = unit.get();
        switch (gate.next(session.device().faults.current())) {
        case FrameGate::Step::Cut:
            connection.abortOnClose();
            return;
        case FrameGate::Step::Hold:
            continue;
        case FrameGate::Step::Repeat:
            sent = lastKey ? lastKey.get() : sent;
            break;
        case FrameGate::Step::Send:
            if (unit->key)
                lastKey = unit;
            gate.sent();
            break;
        }
        if (!connection.write({sent->bytes}, in(pictureTime)))
            return;
    }
}

} // namespace

void streamMpeg2(HttpSession& session) {
    Channel* const channel = wantedChannel(session);
    if (channel == nullptr) {
        session.reply({404, "text/plain", "there is no such camera\n", {}});
        return;
    }
    CodecReader reader(*channel->mpeg2);
    AccessUnitPtr first = reader.next(firstPictureTime);
    if (!first) {
        session.reply({503, "text/plain", "there is no picture\n", {}});
        return;
    }
    session.beginStream(200);
    if (session.connection().write({"HTTP/1.1 200 OK\r\nServer: video-encoder\r\nContent-Type: video/mpeg\r\n"
                                    "Cache-Control: no-cache\r\nConnection: close\r\n\r\n"},
                                   in(pictureTime)) &&
        session.request().method != "HEAD")
        sendPictures(session, reader, std::move(first));
}
