#include "appliance/players/showing/codec_reason.h"

#include <libcommon/status.h>

#include <string_view>
#include <thread>

namespace player {
namespace {

constexpr const char* statusKey = "Reason";
constexpr std::string_view ending = " can't be decoded on this machine: its decoder is missing";

} // namespace

void tellUndecodable(int source, const std::string& codec) {
    status(source, statusKey, ("codec " + codec + std::string(ending)).c_str());
}

void clearUndecodable(int source) {
    std::thread([source] {
        if (status(source, statusKey).ends_with(ending))
            status(source, statusKey, "");
    }).detach();
}

} // namespace player
