// Against this kernel, in a network namespace of the test.
#include "appliance/network/network_reader.h"

#include "tests/appliance/isolation.h"
#include "tests/appliance/process.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <string>

namespace network {
namespace {

class NetworkReaderTest : public testing::Test {
protected:
    void SetUp() override {
        if (!appliance::isolate())
            GTEST_SKIP() << "this user may not create a network namespace";
        ASSERT_TRUE(reader.open());
    }

    static void ip(const std::string& arguments) {
        const appliance::Finished done = appliance::runToEnd({"/bin/sh", "-c", "ip " + arguments}, {});
        ASSERT_EQ(done.status, 0) << "ip " << arguments << ": " << done.errors;
    }
    std::string address() {
        NetworkState state;
        EXPECT_TRUE(reader.read(state));
        return defaultAddress(state).text;
    }
    bool noticed() const {
        pollfd notice{reader.noticeFd(), POLLIN, 0};
        return poll(&notice, 1, 10'000) == 1;
    }

    NetworkReader reader;
};

TEST_F(NetworkReaderTest, NetworkWithoutARouteHasNoAddress) {
    NetworkState state;
    ASSERT_TRUE(reader.read(state));
    ASSERT_FALSE(state.links.empty()) << "lo, at least";
    EXPECT_EQ(defaultAddress(state).text, "");
}

TEST_F(NetworkReaderTest, ReadsWhatTheKernelHas) {
    ip("link add eth0 type veth peer name far0 && ip link set eth0 up && ip address add 10.1.2.3/24 dev "
       "eth0");
    ip("route add default via 10.1.2.1 metric 7");
    NetworkState state;
    ASSERT_TRUE(reader.read(state));
    EXPECT_EQ(defaultAddress(state).text, "10.1.2.3");
    EXPECT_EQ(defaultAddress(state).link, "eth0");
    ASSERT_EQ(state.routes.size(), 1U);
    EXPECT_EQ(state.routes[0].metric, 7U);
}

TEST_F(NetworkReaderTest, NextHopsOfOneRouteAreRead) {
    ip("link add eth0 type veth peer name eth1 && ip link set eth0 up && ip link set eth1 up");
    ip("address add 10.1.2.3/24 dev eth0 && ip address add 10.1.3.3/24 dev eth1");
    ip("route add default nexthop via 10.1.2.1 nexthop via 10.1.3.1");
    NetworkState state;
    ASSERT_TRUE(reader.read(state));
    ASSERT_EQ(state.routes.size(), 2U);
    EXPECT_EQ(defaultAddress(state).text, "10.1.2.3");
}

TEST_F(NetworkReaderTest, EachKindOfChangeIsNoticed) {
    reader.dropNotices();
    for (const char* change : {"link add eth0 type veth peer name far0", "link set eth0 up",
                               "address add 10.1.2.3/24 dev eth0", "route add default via 10.1.2.1",
                               "route del default", "address del 10.1.2.3/24 dev eth0", "link del eth0"}) {
        ip(change);
        EXPECT_TRUE(noticed()) << change;
        EXPECT_FALSE(reader.dropNotices());
    }
}

TEST_F(NetworkReaderTest, NoticesThatWereLostAreToldAndEverythingIsReadAnew) {
    ip("link add eth0 type veth peer name far0 && ip link set eth0 up && ip address add 10.1.2.3/24 dev "
       "eth0");
    ip("route add default via 10.1.2.1");
    reader.dropNotices();
    // Each pair is two notices or more, and nobody takes them.
    ip("address show >/dev/null; for i in $(seq 2000); do echo address add 10.7.0.1/32 dev eth0; "
       "echo address del 10.7.0.1/32 dev eth0; done | ip -batch -");
    ip("address add 10.1.2.9/24 dev eth0 && ip route replace default via 10.1.2.1 src 10.1.2.9");
    EXPECT_TRUE(noticed());
    EXPECT_TRUE(reader.dropNotices()) << "4000 notices fit the socket's buffer";
    EXPECT_EQ(address(), "10.1.2.9");
    ip("address add 10.7.0.2/32 dev eth0");
    EXPECT_TRUE(noticed()) << "notices come again after the loss";
}

} // namespace
} // namespace network
