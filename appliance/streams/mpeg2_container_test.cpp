#include "appliance/streams/mpeg2_container.h"

#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

const std::string packHeader("\0\0\1\xba", 4);
const std::string sequenceHeader("\0\0\1\xb3", 4);

std::string transportPackets(int count) {
    std::string bytes;
    for (int i = 0; i < count; ++i)
        bytes += '\x47' + std::string(187, 'x');
    return bytes;
}

TEST(Mpeg2Container, EachIsRecognisedByItsFirstBytes) {
    EXPECT_EQ(containerOf(transportPackets(3)), Mpeg2Container::transport);
    EXPECT_EQ(containerOf(packHeader + "x" + sequenceHeader), Mpeg2Container::program);
    EXPECT_EQ(containerOf(sequenceHeader + "x"), Mpeg2Container::elementary);
    EXPECT_EQ(containerOf(sequenceHeader + packHeader), Mpeg2Container::elementary);
    EXPECT_EQ(containerOf("xx" + packHeader + transportPackets(1)), Mpeg2Container::program);
    EXPECT_EQ(containerOf(sequenceHeader + transportPackets(2)), Mpeg2Container::elementary);
}

TEST(Mpeg2Container, TransportStreamMayBeJoinedAnywhere) {
    const std::string packets = transportPackets(5);
    for (std::size_t start = 0; start < 188; ++start)
        EXPECT_EQ(containerOf(packets.substr(start, containerBytes)), Mpeg2Container::transport) << start;
}

TEST(Mpeg2Container, AnythingElseIsTriedAsAnElementaryStream) {
    EXPECT_EQ(containerOf(""), Mpeg2Container::elementary);
    EXPECT_EQ(containerOf("\x47"), Mpeg2Container::elementary);
    EXPECT_EQ(containerOf(transportPackets(1) + "x" + transportPackets(1)), Mpeg2Container::elementary);
    EXPECT_EQ(containerOf(std::string(containerBytes, 'x')), Mpeg2Container::elementary);
}

} // namespace
} // namespace streams
