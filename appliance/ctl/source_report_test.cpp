#include "appliance/ctl/source_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using testing::HasSubstr;

SourceReport frontDoor() {
    return {0,
            "T\xc3\xbcr",
            "127.0.0.1:8081",
            {{"ErrorCode", "0"}, {"VideoSourceType", "mjpeg"}, {"ConnectMode", "http"}, {"Model", ""}},
            {{"DisplayTime", "10"}, {"Password", "***"}}};
}

SourceReport garage() {
    return {1, "Garage", "127.0.0.1:8082", {{"ErrorCode", "11"}}, {}};
}

TEST(SourceReport, TableMarksTheCurrentSourceAndAligns) {
    EXPECT_EQ(sourcesText({frontDoor(), garage()}, 1), "  0   T\xc3\xbcr     127.0.0.1:8081  mjpeg, http\n"
                                                       "* 1   Garage  127.0.0.1:8082  error 11\n");
}

TEST(SourceReport, SourceThatWasNotDetected) {
    EXPECT_THAT(sourcesText({{0, "Yard", "127.0.0.1", {{"ErrorCode", ""}}, {}}}, -1),
                HasSubstr("not detected"));
}

TEST(SourceReport, EmptyListSaysSo) {
    EXPECT_EQ(sourcesText({}, -1), "no sources are configured\n");
    EXPECT_EQ(sourcesJson({}, -1).dump(), "[]");
}

TEST(SourceReport, LinesOfOneSource) {
    EXPECT_EQ(sourceText(frontDoor()), "Index=0\nName=T\xc3\xbcr\nAddress=127.0.0.1:8081\n"
                                       "ErrorCode=0\nVideoSourceType=mjpeg\nConnectMode=http\nModel=\n"
                                       "Configured.DisplayTime=10\nConfigured.Password=***\n");
}

TEST(SourceReport, JsonOfOneSource) {
    const nlohmann::json json = sourceJson(frontDoor());
    EXPECT_EQ(json["index"], 0);
    EXPECT_EQ(json["status"]["VideoSourceType"], "mjpeg");
    EXPECT_EQ(json["configured"]["DisplayTime"], "10");
    EXPECT_TRUE(sourcesJson({frontDoor(), garage()}, 1)[1]["current"]);
    EXPECT_FALSE(sourcesJson({frontDoor(), garage()}, 1)[0]["current"]);
}

TEST(SourceReport, NamesInIndexOrder) {
    EXPECT_THAT(sourceNames({frontDoor(), garage()}), testing::ElementsAre("T\xc3\xbcr", "Garage"));
}

} // namespace
