#include "appliance/reporting/source_report.h"

#include "appliance/reporting/error_words.h"

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
                                                       "* 1   Garage  127.0.0.1:8082  " +
                                                           errorText("11") + "\n");
}

TEST(SourceReport, SourceThatWasNotDetected) {
    EXPECT_THAT(sourcesText({{0, "Yard", "127.0.0.1", {{"ErrorCode", ""}}, {}}}, -1),
                HasSubstr("not detected"));
}

TEST(SourceReport, AWarmSourceHasItsFigures) {
    SourceReport source = frontDoor();
    source.warm = streams::KeptReport{.sources = {0},
                                      .kept = true,
                                      .keyAgeMs = 440,
                                      .bitRate = 3'920'000,
                                      .bytes = 524'288,
                                      .players = 1,
                                      .reason = ""};
    EXPECT_THAT(sourcesText({source}, -1), HasSubstr("; warm: key picture 0.4 s old, 3.9 Mbit/s, 512 KiB\n"));
    EXPECT_THAT(sourceText(source), HasSubstr("Warm=key picture 0.4 s old, 3.9 Mbit/s, 512 KiB\n"));
    EXPECT_EQ(sourceJson(source)["warm"]["players"], 1);
    source.warm->kept = false;
    source.warm->reason = "sends nothing";
    EXPECT_THAT(sourceText(source), HasSubstr("Warm=no, sends nothing\n"));
    EXPECT_TRUE(sourceJson(garage())["warm"].is_null());
}

TEST(SourceReport, EmptyListSaysSo) {
    EXPECT_EQ(sourcesText({}, -1), "no sources are configured\n");
    EXPECT_EQ(sourcesJson({}, -1).dump(), "[]");
}

TEST(SourceReport, LinesOfOneSource) {
    EXPECT_EQ(sourceText(frontDoor()), "Index=0\nName=T\xc3\xbcr\nAddress=127.0.0.1:8081\nInForce=yes\n"
                                       "ErrorCode=0\nVideoSourceType=mjpeg\nConnectMode=http\nModel=\n"
                                       "Configured.DisplayTime=10\nConfigured.Password=***\n");
}

TEST(SourceReport, ErrorHasItsWords) {
    EXPECT_THAT(sourceText(garage()), HasSubstr("ErrorCode=11\nError=" + errorWords("11") + '\n'));
    EXPECT_EQ(sourceJson(garage())["error"], errorWords("11"));
    EXPECT_EQ(sourceJson(frontDoor())["error"], "");
}

TEST(SourceReport, SourceThatIsNotInForceIsMarked) {
    SourceReport added = garage();
    added.difference.isNew = true;
    EXPECT_THAT(sourcesText({added}, -1), HasSubstr("; not in force before the next connect (new)\n"));
    EXPECT_THAT(sourceText(added), HasSubstr("InForce=no, new\n"));
    EXPECT_EQ(sourceJson(added)["inForce"], false);
    SourceReport changed = garage();
    changed.difference.changed = {"Name", "DisplayTime"};
    EXPECT_THAT(sourceText(changed), HasSubstr("InForce=no, changed: Name, DisplayTime\n"));
    EXPECT_EQ(sourceJson(changed)["changed"], nlohmann::json({"Name", "DisplayTime"}));
}

TEST(SourceReport, TextsOfAnEncoderAreMadePrintable) {
    SourceReport hostile = frontDoor();
    hostile.status.emplace_back("Model", "X\x1b]0;owned\x07\xff\n\rName=Y");
    hostile.name = "\x1b[2J";
    for (const std::string& text : {sourceText(hostile), sourcesText({hostile}, 0)}) {
        EXPECT_THAT(text, testing::Not(HasSubstr("\x1b")));
        EXPECT_THAT(text, testing::Not(HasSubstr("\xff")));
        EXPECT_THAT(text, testing::Not(HasSubstr("\nName=Y")));
    }
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
