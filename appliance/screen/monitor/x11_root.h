// The X server's root window: what SDL does not tell about it.
#pragma once

#include "appliance/screen/layout.h"

#include <optional>

struct SDL_Window;

namespace screen {

// The size of the root window, when SDL uses X11 and no window manager runs there; nothing otherwise.
std::optional<Size> x11RootWithoutManager();

// The size of the root window now; nothing where the window is not one of X11.
std::optional<Size> x11RootSize(SDL_Window* window);

} // namespace screen
