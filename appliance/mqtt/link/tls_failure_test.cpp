#include "appliance/mqtt/link/tls_failure.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

std::string textOf(const std::vector<std::string>& lines) {
    mqtt::TlsFailure failure;
    for (const std::string& line : lines) {
        failure.note(line);
    }
    return failure.text("");
}

TEST(TlsFailure, HasNoWordsWhileNothingFailed) {
    EXPECT_EQ(textOf({}), "");
    EXPECT_EQ(textOf({"Client decoder sending CONNECT"}), "");
}

TEST(TlsFailure, SaysThatTheHostIsAnotherOne) {
    EXPECT_EQ(textOf({"Error: host name verification failed.",
                      "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed"}),
              "TLS failed: the broker's certificate is for another host");
}

TEST(TlsFailure, SaysWhoRefusedWhom) {
    EXPECT_THAT(textOf({"OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed"}),
                testing::HasSubstr("the broker's certificate is not accepted"));
    EXPECT_THAT(textOf({"OpenSSL Error[0]: error:0A000418:SSL routines::tlsv1 alert unknown ca"}),
                testing::HasSubstr("the broker refused this decoder's certificate"));
    EXPECT_THAT(textOf({"OpenSSL Error[0]: error:0A00045C:SSL routines::tlsv13 alert certificate required"}),
                testing::HasSubstr("set Mqtt.CertFile"));
    EXPECT_THAT(textOf({"OpenSSL Error[0]: error:0A00010B:SSL routines::wrong version number"}),
                testing::HasSubstr("speaks no TLS"));
}

TEST(TlsFailure, PassesOnWordsThatItDoesNotKnow) {
    EXPECT_EQ(textOf({"OpenSSL Error[0]: error:0A000000:SSL routines::bad signature"}),
              "TLS failed: bad signature");
}

TEST(TlsFailure, KnownWordsComeBeforeUnknownOnes) {
    EXPECT_THAT(textOf({"OpenSSL Error[0]: error:0A000000:SSL routines::bad signature",
                        "OpenSSL Error[1]: error:0A00010B:SSL routines::wrong version number"}),
                testing::HasSubstr("speaks no TLS"));
}

} // namespace
