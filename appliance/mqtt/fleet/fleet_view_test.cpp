#include "appliance/mqtt/fleet/fleet_view.h"

#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using mqtt::FleetView;
using testing::HasSubstr;

class Fleet : public testing::Test {
protected:
    Fleet() {
        setenv("TZ", "UTC", 1);
        tzset();
    }

    FleetView view{"house/west"};
};

TEST_F(Fleet, CollectsWhatEachDecoderPublished) {
    view.take("house/west/hall/presence", R"({"time": 1795362407.1, "online": true, "since": 1795358807.5})");
    view.take("house/west/hall/state",
              R"({"running": true, "connected": true, "mode": "auto", "groups": ["lobby", 7],
                  "source": {"index": 1, "name": "Yard"}, "error": {"code": "32", "text": "no connection"}})");
    view.take("house/west/hall/availability", "online");
    ASSERT_EQ(view.decoders().size(), 1U);
    const mqtt::FleetDecoder hall = view.decoders().front();
    EXPECT_TRUE(hall.online);
    EXPECT_EQ(hall.source, "1 Yard");
    EXPECT_EQ(hall.groups, std::vector<std::string>{"lobby"});
    EXPECT_EQ(mqtt::fleetText(view.decoders()),
              "decoder  presence                          source  error\n"
              "hall     online since 2026-11-22 14:46:47  1 Yard  32 no connection\n");
}

TEST_F(Fleet, TellsStoppedFromLost) {
    view.take("house/west/hall/availability", "offline");
    view.take("house/west/hall/presence", R"({"time": 1795362407, "online": false, "since": 1795362407})");
    view.take("house/west/roof/availability", "offline");
    view.take("house/west/roof/presence", R"({"time": 1795362407, "online": true, "since": 1795358807})");
    const std::string text = mqtt::fleetText(view.decoders());
    EXPECT_THAT(text, HasSubstr("hall     offline since 2026-11-22 15:46:47"));
    EXPECT_THAT(text, HasSubstr("roof     lost, last seen 2026-11-22 15:46:47"));
    const nlohmann::json list = mqtt::fleetJson(view.decoders());
    EXPECT_EQ(list[0]["lost"], false);
    EXPECT_EQ(list[1]["lost"], true);
}

TEST_F(Fleet, OrderOfTheMessagesDoesNotMatter) {
    view.take("house/west/roof/presence", R"({"time": 1795362407, "online": true, "since": 1795358807})");
    view.take("house/west/roof/availability", "offline");
    EXPECT_THAT(mqtt::fleetText(view.decoders()), HasSubstr("lost, last seen 2026-11-22 15:46:47"));
}

TEST_F(Fleet, KnowsTheSourcesAndThePanel) {
    view.take("house/west/hall/sources", R"([{"index": 0, "name": "Door"}, 7, {"name": "Yard"}])");
    view.take("house/west/hall/presence",
              R"({"online": true, "since": 5, "panel": "https://hall.example:8088"})");
    view.take("house/west/roof/presence", R"({"online": true, "panel": "javascript:alert(1)//x"})");
    view.take("house/west/cellar/presence", R"({"online": true, "panel": "http://a/b?c"})");
    const std::vector<mqtt::FleetDecoder> decoders = view.decoders();
    ASSERT_EQ(decoders.size(), 3U);
    EXPECT_EQ(decoders[0].panel, "") << "it has a path";
    EXPECT_EQ(decoders[1].panel, "https://hall.example:8088");
    EXPECT_EQ(decoders[1].sources, (std::vector<std::string>{"Door", "Yard"}));
    EXPECT_EQ(decoders[2].panel, "") << "a browser would run it";
}

TEST_F(Fleet, AfterALossOfTheBrokerItSaysAgainWhoIsOnline) {
    view.take("house/west/hall/availability", "online");
    view.take("house/west/roof/availability", "online");
    view.forgetPresence();
    view.take("house/west/hall/availability", "online");
    EXPECT_TRUE(view.decoders()[0].online);
    EXPECT_FALSE(view.decoders()[1].online) << "known, but away";
}

TEST_F(Fleet, RemovedDecoderIsForgotten) {
    view.take("house/west/hall/availability", "online");
    view.take("house/west/hall/availability", "");
    EXPECT_TRUE(view.decoders().empty());
}

TEST_F(Fleet, ForeignAndBrokenMessagesChangeNothing) {
    for (const char* topic : {"house/east/hall/state", "house/west/state", "house/west/_all/state",
                              "house/west//state", "house/west/hall/other", "house/western/state"}) {
        view.take(topic, "{}");
    }
    view.take("house/west/hall/state", "no json");
    view.take("house/west/hall/state", "[]");
    view.take("house/west/hall/state", std::string(70000, ' '));
    EXPECT_TRUE(view.decoders().empty());
    view.take("house/west/hall/state",
              R"({"source": 7, "error": [], "groups": {}, "mode": 1, "running": "yes"})");
    ASSERT_EQ(view.decoders().size(), 1U);
    EXPECT_EQ(view.decoders().front().source, "");
    view.take("house/west/a\nb/availability", "online");
    EXPECT_EQ(view.decoders().front().name, "a b") << "shown in one line";
}

TEST_F(Fleet, GroupsAndNamesChoose) {
    view.take("house/west/hall/state", R"({"groups": ["lobby"]})");
    view.take("house/west/roof/state", R"({"groups": ["outside"]})");
    EXPECT_EQ(view.decoders("lobby", {}).size(), 1U);
    EXPECT_EQ(view.decoders("", {"roof"}).front().name, "roof");
    EXPECT_EQ(view.decoders("cellar", {}).size(), 0U);
    EXPECT_EQ(view.decoders("", {}).size(), 2U);
}

} // namespace
