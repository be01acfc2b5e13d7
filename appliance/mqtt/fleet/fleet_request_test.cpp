#include "appliance/mqtt/fleet/fleet_request.h"

#include "appliance/operating/refused.h"

#include <gtest/gtest.h>

namespace {

TEST(FleetRequest, ReadsBackAsItWasWritten) {
    const mqtt::FleetRequest request{.broker = "mqtt://u:p@host/site",
                                     .caFile = "/ca.pem",
                                     .word = "alarm",
                                     .source = "Yard",
                                     .text = "a \"b\"",
                                     .group = "lobby",
                                     .decoders = {"hall", "roof"},
                                     .json = true};
    const mqtt::FleetRequest read = mqtt::readFleetRequest(mqtt::fleetRequestText(request));
    EXPECT_EQ(mqtt::fleetRequestText(read), mqtt::fleetRequestText(request));
    EXPECT_EQ(read.decoders, request.decoders);
    EXPECT_EQ(read.text, request.text);
}

TEST(FleetRequest, OtherInputIsRefused) {
    for (const char* text : {"", "{}", "[]", R"({"broker": 1})"}) {
        EXPECT_THROW(mqtt::readFleetRequest(text), Refused) << text;
    }
}

} // namespace
