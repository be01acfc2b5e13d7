// decoderctl with a whole decoder: its answers match what the decoder does.
#include "tests/appliance/appliance.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;
using appliance::Finished;
using testing::HasSubstr;

TEST(ControlOfADecoder, DisconnectAndConnectAreDoneWhenTheyReturn) {
    Appliance decoder;
    decoder.addEncoder("Yard");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const Finished disconnected = decoder.ctl({"disconnect"});
    EXPECT_EQ(disconnected.output, "disconnected\n") << disconnected.errors;
    EXPECT_EQ(decoder.status()["connected"], false);
    EXPECT_TRUE(decoder.players().empty());
    const Finished connected = decoder.ctl({"connect"});
    EXPECT_EQ(connected.output, "connected\n") << connected.errors;
    EXPECT_EQ(decoder.status()["connected"], true);
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(ControlOfADecoder, ChangesAreMarkedUntilApplyBringsThemIntoForce) {
    Appliance decoder;
    const appliance::Encoder& yard = decoder.addEncoder("Yard");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_THAT(decoder.ctl({"apply"}).output, HasSubstr("nothing to apply"));

    EXPECT_THAT(decoder.ctl({"set", "Decoder.SequenceMode", "manual"}).output,
                HasSubstr("at the next connect"));
    EXPECT_EQ(decoder.ctl({"set", "Encoder.Gate.Address", yard.address()}).status, 0);
    EXPECT_EQ(decoder.status()["mode"], "auto");
    EXPECT_EQ(decoder.status()["configuredMode"], "manual");
    EXPECT_EQ(decoder.status()["sourcesNotInForce"], 1);
    EXPECT_THAT(decoder.ctl({"sources"}).output, HasSubstr("(new)"));

    const Finished applied = decoder.ctl({"apply"});
    EXPECT_EQ(applied.status, 0) << applied.errors;
    EXPECT_EQ(decoder.status()["mode"], "manual");
    EXPECT_EQ(decoder.status()["configurationChanged"], false);
    EXPECT_TRUE(decoder.showsMoving(0));
}

TEST(ControlOfADecoder, ExplainShowsEachStepOnItsOwnLine) {
    Appliance decoder;
    decoder.addEncoder("Yard");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    const nlohmann::json steps = nlohmann::json::parse(decoder.ctl({"--json", "explain", "0"}).output);
    ASSERT_GE(steps.size(), 3U);
    EXPECT_EQ(steps.front()["kind"], "detection");
    EXPECT_EQ(steps.back()["kind"], "end");
}

TEST(ControlOfADecoder, SweepAfterAKilledDecoderLeavesNothing) {
    Appliance decoder;
    decoder.addEncoder("Yard");
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_THAT(decoder.ctl({"sweep"}).errors,
                HasSubstr("(pid " + std::to_string(decoder.supervisor().pid()) + "): nothing was removed"));
    EXPECT_TRUE(decoder.showsMoving(0));
    decoder.supervisor().signal(SIGKILL);
    ASSERT_TRUE(decoder.supervisor().waitForEnd().has_value());
    const Finished swept = decoder.ctl({"sweep"});
    EXPECT_EQ(swept.status, 0) << swept.errors;
    EXPECT_THAT(swept.output, HasSubstr("removed: "));
    // The destructor of the appliance reports queues, players and barrier files that are left.
}

} // namespace
