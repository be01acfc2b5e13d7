#include "appliance/ctl/watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using testing::HasSubstr;

constexpr std::int64_t second = 1'000'000;

DecoderStatus playing() {
    DecoderStatus status;
    status.supervisorPid = 4700;
    status.connected = true;
    status.mode = "auto";
    status.currentSource = 1;
    status.sourceName = "Garage";
    status.sourceAddress = "127.0.0.1:8082";
    status.picture = Picture{100, 5 * second, 1, 4711, false};
    return status;
}

std::vector<std::string> texts(const std::vector<Change>& changes) {
    std::vector<std::string> all;
    all.reserve(changes.size());
    for (const Change& change : changes) {
        all.push_back(change.what + " = " + change.value);
    }
    return all;
}

TEST(Watch, NothingChanged) {
    DecoderStatus later = playing();
    later.picture->number = 200;
    EXPECT_TRUE(changesBetween(playing(), later).empty());
}

TEST(Watch, EachValueIsNamedWhenItChanges) {
    DecoderStatus later = playing();
    later.supervisorPid = -1;
    later.connected = false;
    later.mode = "manual";
    later.currentSource = -1;
    later.errorCode = "29";
    later.osd[1] = "ALARM: Garage";
    later.statusLed = {2, 2};
    later.picture->blanked = true;
    EXPECT_THAT(texts(changesBetween(playing(), later)),
                testing::ElementsAre("decoder = gone", "connected = no", "mode = manual", "source = none",
                                     "error = 29", "text 1 = ALARM: Garage", "LED = red, steady",
                                     "picture = blank"));
}

TEST(Watch, SourceIsTheNumberAndTheName) {
    EXPECT_THAT(texts(everything(playing())), testing::Contains("source = 1 \"Garage\""));
}

TEST(Watch, RateIsAnnouncedAfterASecondAndThenOnlyWhenItChanges) {
    FrameRate rate;
    EXPECT_FALSE(rate.add(100, 0));
    EXPECT_FALSE(rate.add(112, second / 2));
    EXPECT_TRUE(rate.add(125, second));
    EXPECT_DOUBLE_EQ(rate.value(), 25);
    EXPECT_FALSE(rate.add(149, 2 * second)) << "24 is no news after 25";
    EXPECT_TRUE(rate.add(149, 3 * second));
    EXPECT_DOUBLE_EQ(rate.value(), 0);
}

TEST(Watch, NewFrameStoreStartsTheCountAfresh) {
    FrameRate rate;
    rate.add(1000, 0);
    EXPECT_FALSE(rate.add(5, 2 * second));
    EXPECT_TRUE(rate.add(30, 3 * second));
    EXPECT_DOUBLE_EQ(rate.value(), 25);
}

TEST(Status, TextNamesSourceModeAndTexts) {
    DecoderStatus status = playing();
    status.osd[0] = "Sequence paused";
    status.errorCode = "29";
    const std::string text = statusText(status);
    EXPECT_THAT(text, HasSubstr("connected   yes\n"));
    EXPECT_THAT(text, HasSubstr("mode        auto\n"));
    EXPECT_THAT(text, HasSubstr("source      1 \"Garage\" at 127.0.0.1:8082, error 29\n"));
    EXPECT_THAT(text, HasSubstr("text 0      Sequence paused\n"));
    EXPECT_THAT(text, HasSubstr("drawn by player 4711\n"));
    EXPECT_THAT(text, HasSubstr("status LED  off\n"));
}

TEST(Status, TextOfADecoderThatShowsNothing) {
    const std::string text = statusText(DecoderStatus{});
    EXPECT_THAT(text, HasSubstr("connected   no\n"));
    EXPECT_THAT(text, HasSubstr("source      none\n"));
    EXPECT_THAT(text, HasSubstr("picture     none was drawn yet\n"));
}

TEST(Status, JsonHasWhatProgramsAsk) {
    const nlohmann::json json = statusJson(playing());
    EXPECT_EQ(json["connected"], true);
    EXPECT_EQ(json["mode"], "auto");
    EXPECT_EQ(json["currentSource"], 1);
    EXPECT_EQ(json["playerPid"], 4711);
    EXPECT_EQ(json["osd"].size(), 3U);
    EXPECT_EQ(json["leds"][0]["led"], 2);
    EXPECT_EQ(json["frame"]["number"], 100);
    EXPECT_EQ(json["frame"]["source"], 1);
    EXPECT_EQ(json["frame"]["time"], 5 * second);
}

TEST(Status, JsonWithoutAPicture) {
    const nlohmann::json json = statusJson(DecoderStatus{});
    EXPECT_EQ(json["currentSource"], -1);
    EXPECT_EQ(json["playerPid"], -1);
    EXPECT_TRUE(json["frame"].is_null());
}

TEST(Status, LedsInWords) {
    EXPECT_EQ(ledText({0, 0}), "off");
    EXPECT_EQ(ledText({2, 2}), "red, steady");
    EXPECT_EQ(ledText({3, 3}), "amber, blinking");
    EXPECT_EQ(ledText({7, 9}), "colour 7, pattern 9");
}

} // namespace
