#include "appliance/screen/label.h"

#include "appliance/screen/appliance_root_fixture.h"
#include "appliance/screen/label_content.h"

#include <libcommon/display.h>
#include <libcommon/params.h>
#include <libcommon/status.h>

#include <gmock/gmock.h>

namespace screen {
namespace {

constexpr Size television{720, 576};
constexpr std::int64_t second = 1'000'000;

Rectangle placeOf(const LabelParts& parts, Size screen = television, int row = 0) {
    Label label(row);
    label.update(parts, screen);
    return label.image() ? label.image()->at : Rectangle{};
}

TEST(Label, IsSmallAndAtTheBottomLeft) {
    for (const Size screen : {television, Size{1280, 720}, Size{1920, 1080}, Size{3840, 2160}}) {
        const Rectangle at = placeOf({"Front door", "", "12:34:56", "still for 40 s"}, screen);
        EXPECT_GT(at.x, 0);
        EXPECT_LT(at.x, screen.width / 20);
        EXPECT_LT(at.y + at.height, screen.height - screen.height / 40);
        EXPECT_GT(at.y, screen.height * 8 / 10);
        EXPECT_LT(at.height, screen.height / 12);
        EXPECT_LT(at.width, screen.width * 2 / 3);
    }
}

TEST(Label, GrowsWithEachPart) {
    const int name = placeOf({"Gate", "", "", ""}).width;
    const int clock = placeOf({"Gate", "", "12:34:56", ""}).width;
    const int still = placeOf({"Gate", "", "12:34:56", "still for 40 s"}).width;
    const int all = placeOf({"Gate", "wrong password", "12:34:56", "still for 40 s"}).width;
    EXPECT_LT(name, clock);
    EXPECT_LT(clock, still);
    EXPECT_LT(still, all);
    EXPECT_LT(placeOf({"", "", "12:34:56", ""}).width, clock);
}

TEST(Label, LongNameIsCutAndTheRestIsKept) {
    const std::string name(200, 'W');
    const std::string arabic =
        "الكاميرا الأمامية عند البوابة الشمالية للمستودع الكبير الكاميرا الأمامية عند البوابة";
    for (const Size screen : {television, Size{160, 120}, Size{1920, 1080}, Size{480, 800}})
        for (const std::string& text : {name, arabic, arabic + arabic}) {
            const Rectangle at = placeOf({text, "", "12:34:56", ""}, screen);
            EXPECT_LE(at.x + at.width, screen.width);
            EXPECT_GE(at.x, 0);
            EXPECT_EQ(placeOf({"", text, "12:34:56", ""}, screen), at) << "a long reason";
        }
}

TEST(Label, NameFromRightToLeftIsAtTheLeftToo) {
    EXPECT_LT(placeOf({"بوابة", "", "", ""}).width, 150);
    EXPECT_EQ(placeOf({"بوابة", "", "", ""}).x, placeOf({"Gate", "", "", ""}).x);
}

TEST(Label, RowsDoNotOverlap) {
    const Rectangle low = placeOf({"Gate", "", "", ""});
    const Rectangle high = placeOf({"12", "", "", ""}, television, 1);
    EXPECT_LT(high.y + high.height, low.y + 1);
}

TEST(Label, IsRenderedOnlyWhenItChanges) {
    Label label(0);
    EXPECT_TRUE(label.update({"Gate", "", "", ""}, television));
    EXPECT_FALSE(label.update({"Gate", "", "", ""}, television));
    EXPECT_TRUE(label.update({"Yard", "", "", ""}, television));
    EXPECT_TRUE(label.update({}, television));
    EXPECT_FALSE(label.image());
}

TEST(Label, MarkInTheMiddle) {
    const OverlayImage mark = middleLabel("no picture for 12 s", {400, 300});
    EXPECT_NEAR(2 * mark.at.x + mark.at.width, 400, 1);
    EXPECT_NEAR(2 * mark.at.y + mark.at.height, 300, 1);
    EXPECT_GT(mark.at.width, 50);
    EXPECT_TRUE(middleLabel(" ", {400, 300}).pixels.empty());
}

TEST(StillText, NamesAFittingUnit) {
    EXPECT_EQ(stillText("1"), "still for 1 s");
    EXPECT_EQ(stillText("119"), "still for 119 s");
    EXPECT_EQ(stillText("120"), "still for 2 min");
    EXPECT_EQ(stillText("7199"), "still for 119 min");
    EXPECT_EQ(stillText("7200"), "still for 2 h");
    for (const char* text : {"", "0", "-3", "x", "12 s", "99999999999999999999"})
        EXPECT_EQ(stillText(text), "") << text;
}

class LabelText : public ApplianceRoot {
protected:
    const LabelParts& at(std::int64_t time, const ShownSource& shown) {
        return content.at(time, shown, settings, ApplianceView{});
    }
    LabelContent content;
    ScreenSettings settings;
};

TEST_F(LabelText, NameIsShownForItsTimeAfterEachChange) {
    configure("[Encoder.Front door]\nAddress = 1\n[Encoder.Two]\nName = Garage\nAddress = 2\n");
    settings.nameSeconds = 5;
    EXPECT_EQ(at(10 * second, {0, 10 * second}).name, "Front door");
    EXPECT_EQ(at(14 * second, {0, 10 * second}).name, "Front door");
    EXPECT_EQ(at(15 * second, {0, 10 * second}).name, "");
    EXPECT_EQ(at(20 * second, {1, 20 * second}).name, "Garage");
    EXPECT_EQ(at(26 * second, {1, 20 * second}).name, "");
}

TEST_F(LabelText, NameIsShownAlwaysOrNotAtAll) {
    configure("[Encoder.Gate]\nAddress = 1\n");
    EXPECT_EQ(at(1, {0, 1}).name, "");
    settings.nameAlways = true;
    EXPECT_EQ(at(1000 * second, {0, 1}).name, "Gate");
    EXPECT_EQ(at(1000 * second, {-1, 0}).name, "") << "no picture is visible";
    EXPECT_EQ(at(1000 * second, {7, 0}).name, "") << "there is no such source";
}

TEST_F(LabelText, OperatorsWishWins) {
    configure("[Encoder.Gate]\nAddress = 1\n");
    settings.nameAlways = true;
    EXPECT_EQ(at(1, {0, 1}).name, "Gate");
    content.toggleName();
    EXPECT_EQ(at(2, {0, 1}).name, "");
    settings.nameAlways = false;
    content.toggleName();
    EXPECT_EQ(at(3, {0, 1}).name, "Gate");
}

TEST_F(LabelText, NameIsThatOfTheListInForce) {
    configure("[Encoder.Old]\nAddress = 2\n");
    ParamWrapper(1, true)["Decoder.Info.Connected"] = "yes";
    configure("[Encoder.New]\nAddress = 1\n[Encoder.Old]\nAddress = 2\n");
    settings.nameAlways = true;
    EXPECT_EQ(at(1, {0, 1}).name, "Old") << "the decoder has not read the new list yet";
}

TEST_F(LabelText, ClockIsTheTimeOfDay) {
    EXPECT_EQ(at(1, {}).clock, "");
    settings.clock = true;
    EXPECT_THAT(at(2, {}).clock, testing::MatchesRegex("[0-9][0-9]:[0-9][0-9]:[0-9][0-9]"));
}

TEST_F(LabelText, SourceWithoutAPictureTellsWhy) {
    status(1, "Reason", "wrong password");
    EXPECT_EQ(at(second, {-1, 0}).reason, "") << "no source is current";
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 1;
    EXPECT_EQ(at(2 * second, {-1, 0}).reason, "wrong password");
    EXPECT_EQ(at(3 * second, {0, 2 * second}).reason, "") << "another source is visible";
    EXPECT_EQ(at(4 * second, {1, 4 * second}).reason, "wrong password");
    status(1, "Reason", "");
    EXPECT_EQ(at(5 * second, {-1, 0}).reason, "");
}

TEST_F(LabelText, TheSourceWithoutAConnectionTellsWhy) {
    configure("[Encoder.Gate]\nAddress = 1\n[Encoder.Gate(2)]\nAddress = 2\n[Encoder.Yard]\nAddress = 3\n");
    status(0, "Reason", "wrong path");
    status(1, "Reason", "wrong password");
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 2;
    EXPECT_EQ(at(second, {-1, 0}).reason, "");
    osdPrintf(0, 0, "No connection to encoder Gate(1)");
    EXPECT_EQ(at(2 * second, {-1, 0}).reason, "wrong path");
    osdPrintf(0, 0, "No connection to encoder Gate(2)(2)");
    EXPECT_EQ(at(3 * second, {-1, 0}).reason, "wrong password");
    EXPECT_EQ(at(4 * second, {2, 4 * second}).reason, "") << "a picture is visible";
    osdPrintf(0, 0, "No connection to encoder Gone(1)");
    EXPECT_EQ(at(5 * second, {-1, 0}).reason, "") << "that of the current source";
    osdPrintf(0, 0, "%s", "");
}

TEST_F(LabelText, StillPictureIsTold) {
    status(0, "Still", 40);
    status(1, "Still", 50);
    EXPECT_EQ(at(1, {0, 1}).still, "still for 40 s");
    EXPECT_EQ(at(2, {1, 2}).still, "still for 50 s") << "another source is looked up at once";
    EXPECT_EQ(at(3, {-1, 0}).still, "") << "no picture is visible";
}

} // namespace
} // namespace screen
