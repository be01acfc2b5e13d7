#include "appliance/screen/monitor/key_names.h"

#include <SDL_keycode.h>

namespace screen {

std::optional<Key> keyOf(std::int32_t code) {
    if (code >= SDLK_0 && code <= SDLK_9)
        return Key{KeyKind::digit, code - SDLK_0};
    if (code >= SDLK_KP_1 && code <= SDLK_KP_9)
        return Key{KeyKind::digit, code - SDLK_KP_1 + 1};
    switch (code) {
    case SDLK_KP_0:
        return Key{KeyKind::digit, 0};
    case SDLK_RIGHT:
    case SDLK_DOWN:
        return Key{KeyKind::next};
    case SDLK_LEFT:
    case SDLK_UP:
        return Key{KeyKind::previous};
    case SDLK_SPACE:
        return Key{KeyKind::button};
    case SDLK_i:
        return Key{KeyKind::name};
    case SDLK_m:
        return Key{KeyKind::mute};
    case SDLK_ESCAPE:
        return Key{KeyKind::back};
    default:
        return std::nullopt;
    }
}

} // namespace screen
