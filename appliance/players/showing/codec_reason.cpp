#include "appliance/players/showing/codec_reason.h"

#include <libcommon/status.h>

#include <thread>

namespace player {
namespace {

constexpr const char* statusKey = "Reason";

} // namespace

void tellUndecodable(int source, const std::string& codec) {
    const std::string reason = "codec " + codec + " can't be decoded on this machine: its decoder is missing";
    status(source, statusKey, reason.c_str());
}

void clearUndecodable(int source) {
    std::thread([source] {
        if (status(source, statusKey).ends_with("its decoder is missing"))
            status(source, statusKey, "");
    }).detach();
}

} // namespace player
