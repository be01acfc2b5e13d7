// X11: what SDL does not offer.
#pragma once

#include "appliance/screen/layout.h"

#include <optional>

struct SDL_Window;

namespace screen {

// The size of the root window, when SDL uses X11 and no window manager runs there; nothing otherwise.
std::optional<Size> x11RootWithoutManager();

// The size of the root window now; nothing where the window is not one of X11.
std::optional<Size> x11RootSize(SDL_Window* window);

// While a window grows, it keeps its picture and is black elsewhere. Without this the server shows there whatever its
// memory has from earlier. Does nothing where the window is not one of X11.
void x11KeepWhileGrowing(SDL_Window* window);

} // namespace screen
