// Tells when a display was plugged in, removed or replaced, on a console.
#pragma once

namespace screen {

// Listens to the kernel's messages. Where the kernel does not let it, nothing ever happened. For one thread.
class Hotplug {
public:
    Hotplug();
    ~Hotplug();
    Hotplug(const Hotplug&) = delete;
    Hotplug& operator=(const Hotplug&) = delete;

    // Whether the displays may have changed since the last call, or since the constructor. Does not wait.
    bool happened();

private:
    int socket_;
};

// Lets the kernel read again what is plugged in, so that /sys/class/drm is true: some drivers only tell that something
// has changed. Takes up to some tenths of a second with a slow display. `card` is an open /dev/dri/card* of the program
// that draws on the display; -1 does nothing.
void probeDisplays(int card);

} // namespace screen
