// The decoder as one side of the comparison.
#pragma once

#include "bench/screen/players.h"
#include "tests/appliance/camera_gateway.h"
#include "tests/support/x_server.h"

#include <memory>
#include <string>

namespace bench {

// The decoder with its monitor on one display. It must run in manual mode, disconnected, with two sources that have been
// detected. Warm: with the service that keeps them open.
class DecoderSide : public Side {
public:
    DecoderSide(appliance::Appliance& decoder, const x_server::XServer& server, bool warm);

    // Throws std::runtime_error when the sources are not kept. Waits for that before the first one.
    void show(int source) override;
    void end() override;

private:
    void begin();

    appliance::Appliance& decoder_;
    const x_server::XServer& server_;
    const bool warm_;
    std::unique_ptr<appliance::Process> monitor_;
    std::unique_ptr<appliance::CameraGateway> keeper_;
};

// Tells where the time of an answer went, from the supervisor's log. `askedAt`: secondsOfDay() of the request; `answer` in
// milliseconds. Tells nothing when the log does not have the whole switch yet.
void tellParts(const appliance::Appliance& decoder, const std::string& side, double askedAt, double answer);

} // namespace bench
