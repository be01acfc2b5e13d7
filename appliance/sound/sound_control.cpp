#include "appliance/sound/sound_control.h"

#include <libcommon/params.h>

#include <algorithm>

namespace sound {
namespace {

constexpr int configuration = 0;
constexpr int published = 1;
constexpr const char* mutedName = "Sound.Info.Muted";
constexpr const char* volumeName = "Sound.Volume";
constexpr int fullVolume = 100;

} // namespace

Settings settings() {
    const ParamWrapper parameters(configuration, false);
    Settings settings;
    settings.enabled = parameters["Sound.Enabled"] != "no";
    settings.device = parameters["Sound.Device"].toString();
    if (parameters[volumeName] != "")
        settings.volume = std::clamp(parameters[volumeName].toInt(), 0, fullVolume);
    settings.muted = ParamWrapper(published, false)[mutedName] == "yes";
    return settings;
}

double gainOf(const Settings& settings) {
    if (settings.muted || !settings.enabled)
        return 0;
    // Loudness grows about with the cube root of the amplitude.
    const double part = static_cast<double>(settings.volume) / fullVolume;
    return part * part * part;
}

bool setMuted(bool muted) {
    const char* text = muted ? "yes" : "no";
    ParamWrapper(published, true)[mutedName] = text;
    return ParamWrapper(published, true)[mutedName] == text;
}

bool toggleMuted() {
    setMuted(!settings().muted);
    return settings().muted;
}

bool setVolume(int percent) {
    const int volume = std::clamp(percent, 0, fullVolume);
    ParamWrapper(configuration, true)[volumeName] = volume;
    return ParamWrapper(configuration, true)[volumeName].toInt() == volume;
}

} // namespace sound
