// Where the sound goes: a sound card, or a file.
#pragma once

#include "appliance/players/sound/sound_flow.h"

#include <cstddef>
#include <memory>
#include <string>

namespace player {

class SoundDevice {
public:
    SoundDevice() = default;
    SoundDevice(const SoundDevice&) = delete;
    SoundDevice& operator=(const SoundDevice&) = delete;
    virtual ~SoundDevice() = default;

    // Passes samples on; blocks for about as long as they take to play. False when the device is gone.
    virtual bool write(const SoundFrame* frames, std::size_t count) = 0;

    // How long it takes until written samples are heard, in frames.
    virtual std::size_t latency() const = 0;
};

// Opens the device with the name of the parameter Sound.Device: an ALSA device ("hw:1"), a PulseAudio sink
// ("pulse:NAME"), a file to which the samples are appended ("file:PATH", for tests), or "" for PulseAudio where it
// runs and otherwise ALSA's default device. Null when it can't be opened; that is not logged.
std::unique_ptr<SoundDevice> openSoundDevice(const std::string& name);

} // namespace player
