#include "detect/transport_header.h"

#include <gtest/gtest.h>

namespace {

using detect::parseTransport;
using detect::TransportHeader;

TEST(TransportHeader, MulticastNamesGroupAndFirstPort) {
    const TransportHeader header =
        parseTransport("RTP/AVP;multicast;destination=239.192.0.9;port=5000-5001;ttl=16");
    EXPECT_EQ(header.destination, "239.192.0.9");
    EXPECT_EQ(header.port, 5000);
    EXPECT_EQ(header.clientPort, 0);
}

TEST(TransportHeader, UnicastNamesBothPorts) {
    const TransportHeader header =
        parseTransport("RTP/AVP/UDP;unicast;client_port=10000-10001;server_port=50000-50001;ssrc=1");
    EXPECT_EQ(header.clientPort, 10000);
    EXPECT_EQ(header.serverPort, 50000);
    EXPECT_EQ(header.port, 0) << "not the end of another part's name";
}

TEST(TransportHeader, PartsMustBeginWithTheirName) {
    const TransportHeader header = parseTransport("RTP/AVP; destination=239.1.1.1;xport=7;PORT=8");
    EXPECT_EQ(header.destination, "");
    EXPECT_EQ(header.port, 0);
}

TEST(TransportHeader, LaterPartWins) {
    EXPECT_EQ(parseTransport("port=1;port=2").port, 2);
}

TEST(TransportHeader, InvalidPortIsZero) {
    for (const char* value : {"port=", "port=x", "port=-1", "port=65536", "port=99999999999999999999"})
        EXPECT_EQ(parseTransport(value).port, 0) << value;
    EXPECT_EQ(parseTransport("port=65535").port, 65535);
}

TEST(TransportHeader, EmptyPartsGiveNothing) {
    for (const char* value : {"", ";", ";;;", "=", "destination"}) {
        EXPECT_EQ(parseTransport(value).destination, "") << value;
        EXPECT_EQ(parseTransport(value).port, 0) << value;
    }
}

} // namespace
