#include "appliance/encoder/rtsp_transport.h"

#include <gtest/gtest.h>

namespace {

using Kind = Transport::Kind;

} // namespace

TEST(RtspTransport, TheThreeWaysAreRead) {
    EXPECT_EQ(parseTransport("RTP/AVP;multicast").kind, Kind::Multicast);
    const Transport unicast = parseTransport("RTP/AVP;unicast;client_port=5000-5001");
    EXPECT_EQ(unicast.kind, Kind::Unicast);
    EXPECT_EQ(unicast.first, 5000);
    EXPECT_EQ(unicast.second, 5001);
    EXPECT_EQ(parseTransport("RTP/AVP/UDP;unicast;client_port=7000").second, 7001);
    const Transport channels = parseTransport("RTP/AVP/TCP; unicast; interleaved=4-5");
    EXPECT_EQ(channels.kind, Kind::Interleaved);
    EXPECT_EQ(channels.first, 4);
    EXPECT_EQ(parseTransport("RTP/AVP/TCP;unicast").second, 1);
}

TEST(RtspTransport, WhatCannotBeDoneIsNone) {
    for (const char* text :
         {"", ";", "RTP/SAVP;multicast", "RTP/AVP", "RTP/AVP;unicast",
          "RTP/AVP;unicast;client_port=", "RTP/AVP;unicast;client_port=0-1",
          "RTP/AVP;unicast;client_port=70000-70001", "RTP/AVP;unicast;client_port=5000-5007",
          "RTP/AVP;unicast;client_port=65535", "RAW/RAW/UDP;unicast;client_port=1-2"})
        EXPECT_EQ(parseTransport(text).kind, Kind::None) << text;
    const Transport wild = parseTransport("RTP/AVP/TCP;interleaved=300-301");
    EXPECT_EQ(wild.first, 0) << "there are no such channels";
}

TEST(RtspTransport, RepliesNameWhatTheReceiverNeeds) {
    EXPECT_EQ(multicastReply({"239.1.2.3", 5000}),
              "RTP/AVP;multicast;destination=239.1.2.3;port=5000-5001;ttl=1");
    EXPECT_EQ(unicastReply(parseTransport("RTP/AVP;unicast;client_port=5000-5001"), 6000),
              "RTP/AVP;unicast;client_port=5000-5001;server_port=6000-6001");
    EXPECT_EQ(interleavedReply(parseTransport("RTP/AVP/TCP;interleaved=0-1")),
              "RTP/AVP/TCP;unicast;interleaved=0-1");
}
