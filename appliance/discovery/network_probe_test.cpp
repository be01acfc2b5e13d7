#include "appliance/discovery/network_probe.h"

#include <gtest/gtest.h>

namespace {

const LocalNetwork network{"eth0", 2, 0x0a000001, 0xff000000};

std::string answer(const std::string& endpoint, const std::string& id = "urn:uuid:1") {
    return "<Envelope><Header><RelatesTo>" + id +
           "</RelatesTo></Header><Body><ProbeMatches><ProbeMatch><EndpointReference><Address>" + endpoint +
           "</Address></EndpointReference><Types>Device</Types><XAddrs>http://10.0.0.5/</XAddrs></ProbeMatch>"
           "</ProbeMatches></Body></Envelope>";
}

TEST(AnswerCollector, DeviceIsTakenOnce) {
    AnswerCollector collector({"urn:uuid:1", "urn:uuid:2"});
    collector.take(answer("urn:a"), 5, network);
    collector.take(answer("urn:a", "urn:uuid:2"), 5, network);
    collector.take(answer("urn:b"), 5, network);
    collector.take(answer("urn:a"), 6, network); // a second address of the same device
    ASSERT_EQ(collector.result().devices.size(), 2U);
    EXPECT_EQ(collector.result().devices[0].sender, 5U);
    EXPECT_EQ(collector.result().unfit, 0U);
}

TEST(AnswerCollector, DevicesWithoutNameAreToldApartByTheirAddress) {
    AnswerCollector collector({"urn:uuid:1"});
    collector.take(answer(""), 5, network);
    collector.take(answer(""), 5, network);
    collector.take(answer(""), 6, network);
    EXPECT_EQ(collector.result().devices.size(), 2U);
}

TEST(AnswerCollector, OtherDatagramsAreCounted) {
    AnswerCollector collector({"urn:uuid:1"});
    collector.take("garbage", 5, network);
    collector.take(answer("urn:a", "urn:uuid:other"), 5, network);
    collector.take("", 5, network);
    collector.take("<urn:uuid:1", 5, network);
    collector.take(answer("urn:a") + std::string(40000, ' '), 5, network);
    EXPECT_TRUE(collector.result().devices.empty());
    EXPECT_EQ(collector.result().unfit, 5U);
}

TEST(AnswerCollector, NumberOfDevicesHasALimit) {
    AnswerCollector collector({"urn:uuid:1"});
    for (std::uint32_t i = 0; i < maxDevices + 100; ++i) {
        collector.take(answer("urn:" + std::to_string(i)), i, network);
    }
    EXPECT_EQ(collector.result().devices.size(), maxDevices);
    EXPECT_TRUE(collector.result().tooMany);
}

TEST(AnswerCollector, OneHostCannotTakeAllPlaces) {
    AnswerCollector collector({"urn:uuid:1"});
    for (std::uint32_t i = 0; i < maxDevices; ++i) {
        collector.take(answer("urn:" + std::to_string(i)), 5, network);
    }
    collector.take(answer("urn:camera"), 6, network);
    EXPECT_EQ(collector.result().devices.size(), maxDevicesOfHost + 1);
    EXPECT_TRUE(collector.result().tooMany);
}

} // namespace
