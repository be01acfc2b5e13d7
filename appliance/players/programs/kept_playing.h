// Playing from the keeper of warm sources, which has held what is needed to show a picture at once.
//
// Each function returns when the keeper does not have the stream, or has lost it; the player then connects to the encoder
// itself. What is older than the newest picture is decoded and never shown.
#pragma once

#include "appliance/players/decoding/jpeg_thread.h"
#include "appliance/players/decoding/stream_sink.h"
#include "appliance/players/sound/picture_sound.h"
#include "appliance/streams/stream_address.h"

#include <functional>

namespace player {

// A stream of RTP packets. `sound` may be null. `sink` and `sound` must outlive the process's threads.
void playKeptPackets(const streams::StreamAddress& address, const StreamSink& sink, PictureSound* sound,
                     bool verbose);

// MPEG-2 over HTTP.
void playKeptBytes(const streams::StreamAddress& address, const StreamSink& sink, bool verbose);

// Whole JPEG pictures.
void playKeptPictures(const streams::StreamAddress& address, JpegThread& decoder, bool verbose);

} // namespace player
