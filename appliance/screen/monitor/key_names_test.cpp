#include "appliance/screen/monitor/key_names.h"

#include <gtest/gtest.h>
#include <SDL_keycode.h>

namespace screen {
namespace {

TEST(KeyNames, DigitsOfBothFields) {
    for (int digit = 0; digit <= 9; ++digit) {
        EXPECT_EQ(keyOf(SDLK_0 + digit).value().digit, digit);
        const SDL_KeyCode pad = digit == 0 ? SDLK_KP_0 : static_cast<SDL_KeyCode>(SDLK_KP_1 + digit - 1);
        EXPECT_EQ(keyOf(pad).value().digit, digit);
        EXPECT_EQ(keyOf(pad).value().kind, KeyKind::digit);
    }
}

TEST(KeyNames, TheOthers) {
    EXPECT_EQ(keyOf(SDLK_RIGHT).value().kind, KeyKind::next);
    EXPECT_EQ(keyOf(SDLK_LEFT).value().kind, KeyKind::previous);
    EXPECT_EQ(keyOf(SDLK_SPACE).value().kind, KeyKind::button);
    EXPECT_EQ(keyOf(SDLK_i).value().kind, KeyKind::name);
    EXPECT_EQ(keyOf(SDLK_m).value().kind, KeyKind::mute);
    EXPECT_EQ(keyOf(SDLK_ESCAPE).value().kind, KeyKind::back);
    EXPECT_FALSE(keyOf(SDLK_x).has_value());
    EXPECT_FALSE(keyOf(SDLK_f).has_value()) << "the session's own key";
}

} // namespace
} // namespace screen
