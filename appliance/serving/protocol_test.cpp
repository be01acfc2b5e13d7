#include "appliance/serving/protocol.h"

#include <gtest/gtest.h>

TEST(Protocol, IsKnownByTheMethod) {
    for (const char* start : {"GET / HTTP/1.1\r\n", "GET ", "POST /faults", "HEAD / ", "PUT ", "BREW "})
        EXPECT_EQ(protocolOf(start), Protocol::Http) << start;
    for (const char* start :
         {"DESCRIBE /mpeg4/1/media.orv RTSP/1.0\r\n", "DESCRIBE ", "SETUP x", "PLAY ", "PAUSE ", "TEARDOWN ",
          "GET_PARAMETER ", "SET_PARAMETER ", "\r\nDESCRIBE ", "$\1"})
        EXPECT_EQ(protocolOf(start), Protocol::Rtsp) << start;
}

TEST(Protocol, IsOpenWhileTheMethodIsIncomplete) {
    for (const char* start :
         {"", "\r\n", "G", "GET", "DESCRIBE", "GET_PARAMETER", "OPTIONS", "OPTIONS * RTSP/1.0"})
        EXPECT_FALSE(protocolOf(start).has_value()) << start;
}

TEST(Protocol, OptionsIsDecidedByTheEndOfItsLine) {
    EXPECT_EQ(protocolOf("OPTIONS * RTSP/1.0\r\nCSeq: 1"), Protocol::Rtsp);
    EXPECT_EQ(protocolOf("OPTIONS rtsp://127.0.0.1/ RTSP/1.0\n"), Protocol::Rtsp);
    EXPECT_EQ(protocolOf("OPTIONS * HTTP/1.1\r\n"), Protocol::Http);
    EXPECT_EQ(protocolOf("OPTIONS / RTSP/1.0 x\r\n"), Protocol::Http);
    EXPECT_EQ(protocolOf("OPTIONS \r\n"), Protocol::Http);
}

TEST(Protocol, OtherTextIsLeftToHttp) {
    for (const char* start : {"nonsense\r\n", "aWordThatIsLongerThanAnyMethod", "\x16\x03\x01\n"})
        EXPECT_EQ(protocolOf(start), Protocol::Http) << start;
}
