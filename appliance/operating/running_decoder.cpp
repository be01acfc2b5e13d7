#include "appliance/operating/running_decoder.h"

#include "appliance/operating/refused.h"

#include <libcommon/events.h>
#include <libcommon/params.h>
#include <libcommon/paths.h>

#include <cerrno>

std::string applianceText() {
    return libcommon::applianceRoot().empty() ? "on this machine" : "under " + libcommon::applianceRoot();
}

void requireRunningAppliance() {
    errno = 0;
    if (libcommon::eventQueueOwner() >= 0) {
        return;
    }
    if (errno == EACCES) {
        throw Refused("not allowed to talk to the decoder " + applianceText() + ": use its user or group");
    }
    throw Refused("no decoder is running " + applianceText());
}

bool isConnected() {
    return ParamWrapper(1, false)["Decoder.Info.Connected"] == "yes";
}

bool isWanted() {
    return ParamWrapper(0, false)["Decoder.Connected"] == "yes";
}

bool isHeldBack() {
    return !isConnected() && isWanted();
}
