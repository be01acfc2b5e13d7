#include "appliance/streams/rtp/kept_packets.h"

#include <gmock/gmock.h>
#include <string>

namespace streams {
namespace {

using testing::IsEmpty;

Packet packet(const std::string& bytes) {
    return std::make_shared<const std::string>(bytes);
}

TEST(KeptPackets, BeginWithTheLastKeyPicture) {
    KeptPackets kept(100);
    kept.add(packet("early"), false);
    EXPECT_THAT(kept.packets(), IsEmpty());
    for (const bool key : {true, false, true, false})
        kept.add(packet("12345"), key);
    EXPECT_EQ(kept.packets().size(), 2U);
    EXPECT_EQ(kept.bytes(), 10U);
}

TEST(KeptPackets, ATooLongGroupIsNotKept) {
    KeptPackets kept(12);
    for (const bool key : {true, false, false, false})
        kept.add(packet("12345"), key);
    EXPECT_THAT(kept.packets(), IsEmpty());
    kept.add(packet("12345"), true);
    EXPECT_EQ(kept.packets().size(), 1U);
}

} // namespace
} // namespace streams
