#include "player/port_pairs.h"

#include "tests/fakes/network_namespace.h"

#include <cstdint>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

// In a network namespace, because any port of the machine may be taken. The counters keep their values in a process, so
// each test needs a process of its own, which ctest gives it.
class PortPairs : public testing::Test {
protected:
    void SetUp() override {
        const std::string reason = enterNetworkNamespace();
        if (!reason.empty())
            GTEST_SKIP() << reason;
    }
    ~PortPairs() override {
        for (const int fd : taken_)
            close(fd);
    }

    void take(int port, std::uint32_t address = INADDR_ANY) {
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in where{};
        where.sin_family = AF_INET;
        where.sin_addr.s_addr = htonl(address);
        where.sin_port = htons(static_cast<std::uint16_t>(port));
        ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&where), sizeof where), 0) << port;
        taken_.push_back(fd);
    }

    std::vector<int> taken_;
};

TEST_F(PortPairs, PlayerPortsGoUpByFour) {
    EXPECT_EQ(allocatePlayerPortPair(), 20000);
    EXPECT_EQ(allocatePlayerPortPair(), 20004);
    EXPECT_EQ(allocatePlayerPortPair(), 20008);
}

TEST_F(PortPairs, ProbePortsGoUpByTwo) {
    EXPECT_EQ(allocateProbePortPair(), 10000);
    EXPECT_EQ(allocateProbePortPair(), 10002);
    EXPECT_EQ(allocatePlayerPortPair(), 20000) << "each range counts for itself";
}

TEST_F(PortPairs, TakenPairIsPassedOver) {
    take(20000);
    take(20001);
    EXPECT_EQ(allocatePlayerPortPair(), 20004);
}

TEST_F(PortPairs, HalfTakenPairIsPassedOver) {
    take(20001);
    take(20004);
    take(10001, INADDR_LOOPBACK); // conflicts with the wildcard address, too
    EXPECT_EQ(allocatePlayerPortPair(), 20008);
    EXPECT_EQ(allocateProbePortPair(), 10002);
}

TEST_F(PortPairs, PairIsFreeForItsUser) {
    const int port = allocatePlayerPortPair();
    take(port);
    take(port + 1);
}

TEST_F(PortPairs, PlayerPortsGoRoundAfterFortyThousand) {
    for (int expected = 20000; expected <= 40000; expected += 4)
        ASSERT_EQ(allocatePlayerPortPair(), expected);
    EXPECT_EQ(allocatePlayerPortPair(), 20000);
}

TEST_F(PortPairs, ProbePortsGoRoundAfterTwelveThousand) {
    for (int expected = 10000; expected <= 12000; expected += 2)
        ASSERT_EQ(allocateProbePortPair(), expected);
    EXPECT_EQ(allocateProbePortPair(), 10000);
}

TEST_F(PortPairs, SearchGivesUpAfterTwoHundredAndFiftySixTries) {
    for (int i = 0; i < 256; ++i)
        take(20000 + 4 * i);
    EXPECT_EQ(allocatePlayerPortPair(), -1);
    EXPECT_EQ(allocatePlayerPortPair(), 21024) << "the counter stays where the search ended";
}

TEST_F(PortPairs, TwoHundredAndFiftySixthTryStillCounts) {
    for (int i = 0; i < 255; ++i)
        take(10000 + 2 * i);
    EXPECT_EQ(allocateProbePortPair(), 10510);
}

} // namespace
