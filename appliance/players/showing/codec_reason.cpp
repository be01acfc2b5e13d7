#include "appliance/players/showing/codec_reason.h"

#include <libcommon/status.h>

#include <thread>

namespace player {
namespace {

constexpr const char* statusKey = "Reason";

std::string reasonFor(const std::string& codec) {
    std::string reason = "codec " + codec + " can't be decoded on this machine: its decoder is missing";
    return reason;
}

} // namespace

void tellUndecodable(int source, const std::string& codec) {
    status(source, statusKey, reasonFor(codec).c_str());
}

void clearUndecodable(int source) {
    std::thread([source] {
        // With any codec: the end is the same.
        if (status(source, statusKey).ends_with(reasonFor("").substr(6)))
            status(source, statusKey, "");
    }).detach();
}

} // namespace player
