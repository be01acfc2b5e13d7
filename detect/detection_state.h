// What the probes of one detection share. Only one detection runs at a time. Main thread.
#pragma once

namespace detect {

struct State {
    // "Decoder.AutoDetectTimeout", read as each detection begins: the limit of every single request. Seconds;
    // never 0, and a negative value is passed on as it is.
    int timeoutSeconds = 10;

    // The encoder's HTTP API version, or -4011 when it can't be reached. Set by the driver.
    int apiVersion = 0;
};

extern State state;

} // namespace detect
