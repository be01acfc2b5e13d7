#include "appliance/operating/muting.h"

#include "appliance/operating/refused.h"

#include <libcommon/params.h>

namespace {

constexpr const char* mutedName = "Sound.Info.Muted";

} // namespace

bool isMuted() {
    return ParamWrapper(1, false)[mutedName] == "yes";
}

std::string setMuted(bool muted) {
    ParamWrapper(1, true)[mutedName] = muted ? "yes" : "no";
    if (isMuted() != muted) {
        throw Refused("the sound could not be switched: \"" + std::string(mutedName) + "\" can't be written");
    }
    return muted ? "sound off" : "sound on";
}
