#include "appliance/streams/rtp/reports.h"

#include <gtest/gtest.h>

namespace streams {
namespace {

TEST(Reports, AReportHasABlockOnceSomethingHasCome) {
    const std::string none = receiverReport(1, {});
    EXPECT_EQ(none.size(), 8U + 20U);
    const std::string some = receiverReport(1, {.sender = 0x01020304, .highest = 0x10005, .packets = 1});
    EXPECT_EQ(some.size(), 32U + 20U);
    EXPECT_EQ(some.substr(8, 4), std::string("\1\2\3\4", 4));
    EXPECT_EQ(some.substr(16, 4), std::string("\0\1\0\5", 4));
}

TEST(Reports, AGoodbyeIsFoundBehindOtherReports) {
    const std::string senderReport = std::string("\x80\xc8\0\1", 4) + "1234";
    const std::string goodbye = std::string("\x81\xcb\0\1", 4) + "1234";
    EXPECT_FALSE(hasGoodbye(""));
    EXPECT_FALSE(hasGoodbye(senderReport));
    EXPECT_TRUE(hasGoodbye(senderReport + goodbye));
    EXPECT_FALSE(
        hasGoodbye(std::string("\x80\xc8\xff\xff", 4) + "1234" + goodbye)); // a length beyond the end
}

} // namespace
} // namespace streams
