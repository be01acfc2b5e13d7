// The sound of an RTP stream. A failure of the sound never affects the picture.
#pragma once

#include "appliance/players/sound/sound_output.h"

#include <cstddef>
#include <gst/gst.h>
#include <string>

namespace player {

class RtpSound {
public:
    // Prepares decoding of packets with these caps. `output` must outlive the object. Never destroyed: its pipeline may run
    // until the process ends.
    RtpSound(SoundOutput& output, const std::string& caps);

    // Takes a packet; drops it while no device plays it. For one thread.
    void feed(const void* packet, std::size_t bytes);

private:
    void prepare(const std::string& caps);

    SoundOutput& output_;
    GstElement* source_ = nullptr; // null: this sound can't be played
};

} // namespace player
