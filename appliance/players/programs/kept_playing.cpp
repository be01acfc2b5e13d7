#include "appliance/players/programs/kept_playing.h"

#include "appliance/players/decoding/byte_pictures.h"
#include "appliance/players/decoding/packet_pictures.h"
#include "appliance/streams/kept_stream.h"

#include <libcommon/log.h>

#include <memory>
#include <string>

namespace player {
namespace {

using Form = streams::KeptDescription::Form;

// Null when it is not kept, or not in that form.
std::unique_ptr<streams::KeptStream> openKept(const streams::StreamAddress& address, Form form,
                                              bool verbose) {
    std::unique_ptr<streams::KeptStream> kept = streams::KeptStream::open(address);
    if (kept == nullptr || kept->description().form != form)
        return nullptr;
    if (verbose)
        logmsg(7, "The stream comes from the keeper");
    return kept;
}

void runKept(streams::KeptStream& kept, const streams::KeptTaker& taker) {
    const std::string reason = kept.run(taker);
    logmsg(6, "The stream comes from the encoder now: %s", reason.c_str());
}

} // namespace

void playKeptPackets(const streams::StreamAddress& address, const StreamSink& sink, PictureSound* sound,
                     bool verbose) {
    const auto kept = openKept(address, Form::packets, verbose);
    if (kept == nullptr || !decodesVideo(kept->description().video->encodingName))
        return;
    const streams::KeptDescription& description = kept->description();
    auto& pictures = *new PacketPictures(sink); // never destroyed: it has its own thread
    pictures.begin(*description.video, description.ordered);
    const bool heard = sound != nullptr && description.sound && decodesSound(description.sound->encodingName);
    if (heard)
        sound->beginRtp(description.sound->caps);
    bool live = false;
    runKept(*kept, {.video = [&](std::string_view packet) { return pictures.feed(packet, live); },
                    .sound =
                        [&](std::string_view packet) {
                            if (heard)
                                sound->feedRtp(packet);
                        },
                    .bytes = {},
                    .picture = {},
                    .live = [&] { live = true; }});
}

void playKeptBytes(const streams::StreamAddress& address, const StreamSink& sink, bool verbose) {
    const auto kept = openKept(address, Form::bytes, verbose);
    if (kept == nullptr)
        return;
    auto& pictures = *new BytePictures(sink); // never destroyed: it has its own thread
    bool live = false;
    runKept(*kept,
            {.video = {},
             .sound = {},
             .bytes = [&](std::string_view bytes) { return pictures.feed(bytes.data(), bytes.size(), live); },
             .picture = {},
             .live = [&] { live = true; }});
}

void playKeptPictures(const streams::StreamAddress& address, JpegThread& decoder, bool verbose) {
    const auto kept = openKept(address, Form::pictures, verbose);
    if (kept == nullptr)
        return;
    runKept(*kept, {.video = {},
                    .sound = {},
                    .bytes = {},
                    .picture = [&](std::string_view jpeg) { decoder.feed(jpeg); },
                    .live = [] {}});
}

} // namespace player
