#include "appliance/streams/rtp/reordering.h"

#include "appliance/streams/rtp/rtp_packet.h"
#include "appliance/streams/rtp/test_packets.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace streams {
namespace {

using testing::ElementsAre;

class ReorderingTest : public testing::Test {
protected:
    void add(int sequence, std::int64_t now = 0) {
        order_.add(rtp(static_cast<std::uint16_t>(sequence), 0, ""), now);
    }

    std::vector<int> taken_;
    Reordering order_{[this](std::string_view bytes) { taken_.push_back(readRtp(bytes)->sequence); }};
};

TEST_F(ReorderingTest, PacketsInOrderDoNotWait) {
    for (const int sequence : {65534, 65535, 0, 1})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(65534, 65535, 0, 1));
}

TEST_F(ReorderingTest, ALatePacketTakesItsPlaceAndTwinsAreDropped) {
    for (const int sequence : {10, 12, 13, 12, 11, 11, 14})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(10, 11, 12, 13, 14));
    EXPECT_EQ(order_.lost(), 0U);
}

TEST_F(ReorderingTest, AMissingPacketIsGivenUpInTime) {
    add(10, 0);
    add(12, 1000);
    order_.look(40'000);
    EXPECT_THAT(taken_, ElementsAre(10));
    order_.look(60'000);
    EXPECT_THAT(taken_, ElementsAre(10, 12));
    EXPECT_EQ(order_.lost(), 1U);
    add(11, 61'000);
    EXPECT_THAT(taken_, ElementsAre(10, 12));
}

TEST_F(ReorderingTest, ASenderThatBeginsAnewIsFollowed) {
    for (const int sequence : {10, 30000, 30001})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(10, 30000, 30001));
}

TEST_F(ReorderingTest, TooManyWaitingPacketsGoOn) {
    add(0);
    for (int sequence = 2; sequence < 2 + static_cast<int>(Reordering::mostWaiting) + 1; ++sequence)
        add(sequence);
    EXPECT_EQ(taken_.size(), Reordering::mostWaiting + 2);
}

} // namespace
} // namespace streams
