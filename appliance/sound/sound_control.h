// The decoder's sound: whether it plays, where, how loud.
//
// The settings are parameters (file 0: Sound.Enabled, Sound.Device, Sound.Volume; file 1: Sound.Info.Muted). The player
// on the screen reads them a few times a second, so a change takes effect within a second. Any thread.
#pragma once

#include <string>

namespace sound {

struct Settings {
    bool enabled = true;
    std::string device; // "": the machine's own choice
    int volume = 100;   // percent
    bool muted = false;

    bool operator==(const Settings&) const = default;
};

Settings settings();

// The factor for each sample: 0 when muted, 1 at full volume. Half the volume sounds about half as loud.
double gainOf(const Settings& settings);

// Mutes or unmutes; the volume stays. False with a log line when it can't be written.
bool setMuted(bool muted);

// Mutes when the sound plays, unmutes when it is muted; for a key. Returns whether the sound is muted now.
bool toggleMuted();

// Sets the volume in percent, 0 to 100; a value beyond is taken to the nearest of them. False with a log line when it
// can't be written.
bool setVolume(int percent);

} // namespace sound
