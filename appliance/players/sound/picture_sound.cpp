#include "appliance/players/sound/picture_sound.h"

#include <algorithm>
#include <thread>

namespace player {

bool decodesSound(const std::string& encodingName) {
    constexpr const char* known[] = {"PCMU", "PCMA", "MPA", "MPEG4-GENERIC", "MP4A-LATM", "G726-32"};
    return std::ranges::find(known, encodingName) != std::end(known);
}

// Waits until the picture is shown. Null when the sound can't be played.
SoundPlayer* PictureSound::load() {
    sink_.awaitShowing();
    GStreamerModule* gstreamer = loadGStreamer();
    player_ = gstreamer == nullptr ? nullptr : gstreamer->playSound(sink_);
    return player_;
}

void PictureSound::playHttp(const streams::HttpSource& source, bool verbose) {
    std::thread([this, source, verbose] {
        if (SoundPlayer* player = load())
            player->playHttp(source, verbose);
    }).detach();
}

void PictureSound::beginRtp(const std::string& caps) {
    if (begun_.exchange(true))
        return;
    std::thread([this, caps] {
        SoundPlayer* player = load();
        if (player == nullptr)
            return;
        player->beginRtp(caps);
        takesPackets_ = true;
    }).detach();
}

void PictureSound::feedRtp(std::string_view packet) {
    if (takesPackets_)
        player_.load()->feedRtp(packet.data(), packet.size());
}

void PictureSound::end() {
    if (SoundPlayer* player = player_)
        player->end(soundEndMs);
}

} // namespace player
