#include <libcommon/display.h>

#include "libcommon/src/appliance_fixture.h"

#include <libcommon/clock.h>

#include <climits>
#include <sys/stat.h>

namespace {

using libcommon::ledState;
using libcommon::osdBlankTime;
using libcommon::osdText;

class Display : public ApplianceTest {
protected:
    static std::string displayFile(const std::string& name) { return file("/run/decoder/display/" + name); }

    // As if the line had been shown that long ago.
    static void shownAgo(int line, std::int64_t microseconds, int displayTime, const std::string& text) {
        write(displayFile("line" + std::to_string(line)),
              std::to_string(gettimeusec() - microseconds) + " " + std::to_string(displayTime) + "\n" + text);
    }
};

TEST_F(Display, ShowsATextOnItsLineUntilItIsCleared) {
    osdPrintf(0, 0, "No connection to encoder %s(%s)", "Gate", "10.0.0.1");
    osdPrintf(2, 0, "%d", 7);
    EXPECT_EQ(osdText(0), "No connection to encoder Gate(10.0.0.1)");
    EXPECT_EQ(osdText(1), "");
    EXPECT_EQ(osdText(2), "7");
    osdPrintf(0, 0, "another");
    EXPECT_EQ(osdText(0), "another");
    osdClear(0);
    osdClear(1);
    EXPECT_EQ(osdText(0), "");
    EXPECT_EQ(osdText(2), "7");
    EXPECT_EQ(log(), "");
}

TEST_F(Display, ATextsTimeEnds) {
    osdPrintf(0, 100, "a");
    EXPECT_EQ(osdText(0), "a");
    shownAgo(0, 4'000'000, 5, "b");
    EXPECT_EQ(osdText(0), "b");
    shownAgo(0, 5'000'000, 5, "b");
    EXPECT_EQ(osdText(0), "");
    shownAgo(0, 1'000'000'000'000, 0, "c");
    EXPECT_EQ(osdText(0), "c");
    shownAgo(0, 0, INT_MAX, "d");
    EXPECT_EQ(osdText(0), "d");
}

TEST_F(Display, ATextFromBeforeTheMachinesStartIsOver) {
    shownAgo(0, -60'000'000, 5, "old");
    EXPECT_EQ(osdText(0), "");
    write(displayFile("blank"), std::to_string(gettimeusec() + 60'000'000) + "\n");
    EXPECT_EQ(osdBlankTime(), 0);
}

TEST_F(Display, TextsAreCutBetweenCharacters) {
    osdPrintf(0, 0, "%s", std::string(300, 'x').c_str());
    EXPECT_EQ(osdText(0), std::string(255, 'x'));
    std::string umlauts;
    for (int i = 0; i < 2000; ++i)
        umlauts += "\xc3\xa4";
    osdPrintf(0, 0, "%s", umlauts.c_str());
    EXPECT_EQ(osdText(0), umlauts.substr(0, 254));
}

TEST_F(Display, ControlCharactersAndInvalidBytesAreReplaced) {
    osdPrintf(0, 0, "a\nb\x1b[7m\xff%s", "\t!");
    EXPECT_EQ(osdText(0), "a b [7m? !");
    osdPrintf(0, 0, "%s", "");
    EXPECT_EQ(osdText(0), "");
}

TEST_F(Display, BadNumbersAreLoggedAndChangeNothing) {
    osdPrintf(0, 0, "stays");
    const auto before = entries(file("/run/decoder/display"));
    for (const int line : {-1, 3, INT_MAX, INT_MIN}) {
        osdPrintf(line, 0, "x");
        osdClear(line);
        EXPECT_EQ(osdText(line), "");
    }
    EXPECT_EQ(logCount("There is no OSD line"), 12U);
    for (const int led : {-1, 256, INT_MIN}) {
        set_led(led, 1, 1);
        EXPECT_EQ(ledState(led).colour, 0);
    }
    EXPECT_EQ(logCount("There is no LED"), 6U);
    EXPECT_EQ(osdText(0), "stays");
    EXPECT_EQ(entries(file("/run/decoder/display")), before);
}

// A configured display time of alarms may be anything; the alarm is shown in any case.
TEST_F(Display, ANegativeDisplayTimeIsNone) {
    osdPrintf(1, -1, "ALARM: %s", "Gate");
    EXPECT_EQ(osdText(1), "ALARM: Gate");
    EXPECT_EQ(logCount("OSD line 1: -1 is no display time; the text stays until it is cleared."), 1U)
        << log();
    osdClear(1);
    EXPECT_EQ(osdText(1), "");
}

TEST_F(Display, BlankingIsRemembered) {
    EXPECT_EQ(osdBlankTime(), 0);
    const std::int64_t before = gettimeusec();
    osdBlank();
    EXPECT_GE(osdBlankTime(), before);
    EXPECT_LE(osdBlankTime(), gettimeusec());
}

TEST_F(Display, LedsKeepWhatTheyAreSetTo) {
    EXPECT_EQ(ledState(2).colour, 0);
    EXPECT_EQ(ledState(2).pattern, 0);
    set_led(2, 3, 3);
    set_led(0, -5, INT_MAX);
    EXPECT_EQ(ledState(2).colour, 3);
    EXPECT_EQ(ledState(2).pattern, 3);
    EXPECT_EQ(ledState(0).colour, -5);
    EXPECT_EQ(ledState(0).pattern, INT_MAX);
    EXPECT_EQ(log(), "");
}

TEST_F(Display, DamagedFilesReadAsNothing) {
    for (const std::string& damage :
         {std::string(), std::string("x"), std::string("5"), std::string("5\ntext"), std::string("a b\ntext"),
          std::string(3, '\0'), std::string("1 2 no newline")}) {
        write(displayFile("line0"), damage);
        write(displayFile("led2"), damage.substr(0, 1));
        write(displayFile("blank"), damage == "5" ? "" : "x" + damage);
        EXPECT_EQ(osdText(0), "") << damage;
        EXPECT_EQ(ledState(2).colour, 0) << damage;
        EXPECT_EQ(osdBlankTime(), 0) << damage;
    }
    shownAgo(0, 0, 0, std::string(2000, 'x'));
    EXPECT_EQ(osdText(0), "");
    EXPECT_EQ(logCount("File too large"), 1U);
}

TEST_F(Display, AFolderThatCantBeMadeIsReported) {
    write(file("/run"), "in the folder's place");
    osdPrintf(0, 0, "x");
    set_led(2, 2, 2);
    osdBlank();
    EXPECT_EQ(logCount("Failed to write"), 3U) << log();
    EXPECT_EQ(logCount("(errno=20 Not a directory)"), 3U);
}

TEST_F(Display, AnotherProcessSeesTheOldTextOrTheNewOne) {
    osdPrintf(0, 0, "first");
    const Signpost stop;
    const pid_t writer = start([&] {
        for (int i = 0; !stop.isReached(); ++i)
            osdPrintf(0, 0, "%s", i % 2 == 0 ? "second, and longer" : "first");
        return 0;
    });
    for (int i = 0; i < 2000; ++i) {
        const std::string seen = osdText(0);
        ASSERT_TRUE(seen == "first" || seen == "second, and longer") << seen;
    }
    stop.reach();
    EXPECT_EQ(finish(writer), 0);
    EXPECT_EQ(entries(file("/run/decoder/display")), std::vector<std::string>{"line0"});
}

} // namespace
