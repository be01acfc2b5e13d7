#include "appliance/reporting/changes.h"

#include "appliance/reporting/error_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

namespace {

using testing::HasSubstr;

constexpr std::int64_t second = 1'000'000;

DecoderStatus playing() {
    DecoderStatus status;
    status.supervisorPid = 4700;
    status.connected = true;
    status.wanted = true;
    status.mode = "auto";
    status.configuredMode = "auto";
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
        all.push_back(change.what + " = " + change.text);
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
    later.configuredMode = "manual";
    later.currentSource = -1;
    later.errorCode = "29";
    later.osd[1] = "ALARM: Garage";
    later.statusLed = {2, 2};
    later.picture->blanked = true;
    EXPECT_THAT(texts(changesBetween(playing(), later)),
                testing::ElementsAre("decoder = gone", "connected = no", "mode = manual", "source = none",
                                     "error = " + errorText("29"), "text 1 = ALARM: Garage",
                                     "LED = red, steady", "picture = blank"));
}

TEST(Watch, SourceIsTheNumberAndTheName) {
    EXPECT_THAT(texts(everything(playing())), testing::Contains("source = 1 \"Garage\""));
}

TEST(Watch, JsonHasDateAndStructuredValues) {
    std::map<std::string, nlohmann::json> values;
    DecoderStatus status = playing();
    status.errorCode = "32";
    status.osd[2] = "\x1b[0m\xff";
    for (const Change& change : everything(status)) {
        const std::string line = changeJsonLine(change, "2026-11-21T09:21:42.087+01:00");
        EXPECT_EQ(line.find('\n'), std::string::npos);
        const nlohmann::json json = nlohmann::json::parse(line);
        EXPECT_EQ(json["time"], "2026-11-21T09:21:42.087+01:00");
        values[json["what"]] = json["value"];
    }
    EXPECT_EQ(values["decoder"], nlohmann::json({{"pid", 4700}}));
    EXPECT_EQ(values["connected"], true);
    EXPECT_EQ(values["mode"], nlohmann::json({{"inForce", "auto"}, {"configured", "auto"}}));
    EXPECT_EQ(values["source"],
              nlohmann::json({{"index", 1}, {"name", "Garage"}, {"address", "127.0.0.1:8082"}}));
    EXPECT_EQ(values["error"], nlohmann::json({{"code", "32"}, {"text", "no connection to the encoder"}}));
    EXPECT_EQ(values["text"]["line"], 2) << "the last of the three";
    EXPECT_EQ(values["led"]["text"], "off");
    EXPECT_EQ(values["picture"], nlohmann::json({{"blank", false}, {"source", 1}}));
}

TEST(Watch, NothingIsNullInJson) {
    for (const Change& change : everything(DecoderStatus{})) {
        if (change.key == "source" || change.key == "error" || change.key == "picture" ||
            change.key == "decoder") {
            EXPECT_TRUE(change.value.is_null()) << change.key;
        }
    }
}

TEST(Watch, RateIsAnnouncedAfterASecondAndThenOnlyWhenItChanges) {
    FrameRate rate;
    EXPECT_FALSE(rate.add(100, 0));
    EXPECT_FALSE(rate.add(112, second / 2));
    EXPECT_TRUE(rate.add(125, second));
    EXPECT_DOUBLE_EQ(rate.value(), 25);
    EXPECT_FALSE(rate.add(149, 2 * second)) << "24 after 25 is not announced";
    EXPECT_TRUE(rate.add(149, 3 * second));
    EXPECT_DOUBLE_EQ(rate.value(), 0);
}

TEST(Watch, NewFrameStoreRestartsTheCount) {
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
    EXPECT_THAT(
        text,
        HasSubstr(
            "source      1 \"Garage\" at 127.0.0.1:8082, error 29 (the player was killed by a signal)\n"));
    EXPECT_THAT(text, HasSubstr("text 0      Sequence paused\n"));
    EXPECT_THAT(text, HasSubstr("drawn by player 4711\n"));
    EXPECT_THAT(text, HasSubstr("status LED  off\n"));
}

TEST(Status, ModeInForceAndConfiguredModeAreBothShown) {
    DecoderStatus status = playing();
    EXPECT_EQ(modeText(status), "auto");
    status.configuredMode = "manual";
    EXPECT_EQ(modeText(status), "auto; configured: manual, in force at the next connect");
    status.configuredMode = "Auto";
    EXPECT_EQ(modeText(status), "auto; configured: Auto, which is no mode: the mode stays");
    status.configuredMode = status.mode = "";
    EXPECT_EQ(modeText(status), "nothing is configured, which is no mode: the decoder keeps the mode before");
}

TEST(Status, ConfigurationThatIsNotInForceIsReported) {
    DecoderStatus status = playing();
    EXPECT_THAT(statusText(status), testing::Not(HasSubstr("configured")));
    status.unread = true;
    status.sourcesNotInForce = 2;
    EXPECT_THAT(
        statusText(status),
        HasSubstr("configured  changed since the decoder connected, 2 of the sources (decoderctl sources); "
                  "decoderctl apply brings it into force\n"));
    EXPECT_EQ(statusJson(status)["configurationChanged"], true);
}

TEST(Status, DecoderThatShouldPlayButDoesNotIsLocked) {
    DecoderStatus status = playing();
    status.connected = false;
    EXPECT_THAT(statusText(status), HasSubstr("connected   no, locked or about to connect\n"));
    status.wanted = false;
    EXPECT_THAT(statusText(status), HasSubstr("connected   no\n"));
}

TEST(Status, TextOfADecoderThatShowsNothing) {
    const std::string text = statusText(DecoderStatus{});
    EXPECT_THAT(text, HasSubstr("connected   no\n"));
    EXPECT_THAT(text, HasSubstr("source      none\n"));
    EXPECT_THAT(text, HasSubstr("picture     none yet\n"));
}

TEST(Status, JsonHasTheValuesThatProgramsNeed) {
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
