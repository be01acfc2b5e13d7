#include "appliance/operating/muting.h"

#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"
#include "appliance/sound/sound_control.h"

std::string muteSound(bool muted) {
    requireRunningAppliance();
    if (!sound::setMuted(muted)) {
        throw Refused("Sound.Info.Muted can't be written " + applianceText());
    }
    const sound::Settings now = sound::settings();
    if (muted) {
        return "the sound is muted";
    }
    return now.enabled ? "the sound plays at " + std::to_string(now.volume) + "% of its volume"
                       : "the sound is no longer muted, but Sound.Enabled is \"no\"";
}

bool isMuted() {
    return sound::settings().muted;
}
