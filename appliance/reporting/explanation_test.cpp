#include "appliance/reporting/explanation.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

constexpr const char* trace = "detection of 127.0.0.1:8081, source 1, configured type auto, timeout 10 s\n"
                              "0.0 4.1 GET /param -> 23 bytes \"a -> b\" via http\n"
                              "= API version 2: it said so\n"
                              "4.2 10.0 GET /silent\n"
                              "something newer\n"
                              "end 41.7 accepted: kind 1 (mjpeg)\n";

TEST(Explanation, ShowsRequestsAnswersAndDecisionsInOrder) {
    EXPECT_EQ(explanationText(readTrace(trace)),
              "detection of 127.0.0.1:8081, source 1, configured type auto, timeout 10 s\n"
              "      0.0 ms  GET /param\n"
              "      4.1 ms    <- 23 bytes \"a -> b\" via http\n"
              "              => API version 2: it said so\n"
              "      4.2 ms  GET /silent\n"
              "              something newer\n"
              "     41.7 ms  accepted: kind 1 (mjpeg)\n");
}

TEST(Explanation, JsonHasTimesAndAnswers) {
    const nlohmann::json json = explanationJson(readTrace(trace));
    ASSERT_EQ(json.size(), 6U);
    EXPECT_EQ(json[0]["kind"], "detection");
    EXPECT_EQ(json[1]["kind"], "request");
    EXPECT_EQ(json[1]["text"], "GET /param");
    EXPECT_EQ(json[1]["answer"], "23 bytes \"a -> b\" via http");
    EXPECT_DOUBLE_EQ(json[1]["tookMs"], 4.1);
    EXPECT_EQ(json[2]["kind"], "decision");
    EXPECT_EQ(json[5]["kind"], "end");
    EXPECT_DOUBLE_EQ(json[5]["beginMs"], 41.7);
}

TEST(Explanation, IncompleteTracesAreShownUnchanged) {
    EXPECT_EQ(explanationText(readTrace("")), "");
    EXPECT_EQ(readTrace("12.5").at(0).kind, TraceLine::Kind::Other);
    EXPECT_EQ(readTrace("end").at(0).kind, TraceLine::Kind::Other);
    EXPECT_EQ(readTrace("1.0 x GET /").at(0).kind, TraceLine::Kind::Other);
}

} // namespace
