// The API of the panel: all addresses below /api/v1 and /metrics, and what the event streams tell.
//
// It is a client of the decoder's public interface, as decoderctl is: it reads and writes the appliance's files and sends
// events to the supervisor. Handlers run on the main loop's thread and answer what is known at once; what may wait runs in
// threads of its own.
#pragma once

#include "appliance/panel/web/event_streams.h"
#include "appliance/panel/web/router.h"

#include <memory>

namespace panel {

class Api {
public:
    // Adds the routes, gives the streams their first events, and follows the decoder until it is destroyed. Both have to
    // live longer. Main loop's thread, before the server starts.
    Api(Router& router, EventStreams& streams);
    ~Api();
    Api(const Api&) = delete;
    Api& operator=(const Api&) = delete;

private:
    class State;
    std::shared_ptr<State> state_;
};

} // namespace panel
