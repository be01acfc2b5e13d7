// The module with libavcodec.
#include "appliance/players/decoding/av_decoder.h"
#include "appliance/players/modules/exported.h"

#include <type_traits>

EXPORTED player::UnitDecoder* playerMakeUnitDecoder() {
    return new player::AvDecoder;
}

static_assert(std::is_same_v<decltype(playerMakeUnitDecoder), player::MakeUnitDecoder>);
