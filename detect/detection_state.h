// The values that all probes of a detection share. Only one detection runs at a time. Main thread.
#pragma once

namespace detect {

struct State {
    // "Decoder.AutoDetectTimeout", read when a detection begins: the limit of each request in seconds. Never 0; a
    // negative value is passed on as it is.
    int timeoutSeconds = 10;

    // The encoder's HTTP API version, or -4011 when it can't be reached. Set by the driver.
    int apiVersion = 0;
};

extern State state;

} // namespace detect
