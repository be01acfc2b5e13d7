// What a wall shows on a display, with decoders that draw into real frame stores.
#include "appliance/screen/wall/wall_fixture.h"

#include <gmock/gmock.h>

#include <csignal>

namespace screen {
namespace {

using appliance::eventually;
using testing::HasSubstr;

TEST_F(WallTest, ShowsEachDecoderInItsTile) {
    startFourDecoders();
    startWall("2x2");
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(shows(tile(i % 2, i / 2), 16 * i)) << i;
        EXPECT_TRUE(moves(tile(i % 2, i / 2))) << i;
        EXPECT_FALSE(isMarked(tile(i % 2, i / 2))) << i;
    }
    EXPECT_EQ(colourIn(tile(0, 0), 0.5, 0.5), 0x204080U);
    EXPECT_EQ(colourIn(tile(1, 1), 0.5, 0.5), 0x602060U);
}

TEST_F(WallTest, TilesWithoutADecoderAreBlack) {
    startDecoder(0, 0x204080);
    startWall("0,0,50,50;50,50,50,50");
    EXPECT_TRUE(shows(tile(0, 0), 0));
    EXPECT_EQ(colourIn(tile(1, 0), 0.5, 0.5), 0U);
    EXPECT_EQ(colourIn(tile(1, 1), 0.5, 0.5), 0U);
}

TEST_F(WallTest, EachTileKeepsItsPicturesProportions) {
    startDecoder(0, 0x204080, {640, 360}); // 16:9 in a tile of 4:3
    startDecoder(1, 0x206020, {720, 540});
    startWall("2x2");
    const Rectangle first = tile(0, 0);
    EXPECT_TRUE(shows({first.x, first.y + 45, 480, 270}, 0));
    EXPECT_EQ(colourIn(first, 0.5, 0.05), 0U) << "a bar";
    EXPECT_EQ(colourIn(first, 0.5, 0.2), 0x204080U);
}

TEST_F(WallTest, ClickEnlargesATileAndTheNextOneShowsAllAgain) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(1, 0), 16));
    click(700, 100);
    EXPECT_TRUE(shows(whole, 16));
    EXPECT_TRUE(moves(whole));
    click(5, 700);
    EXPECT_TRUE(shows(tile(1, 1), 48));
    EXPECT_TRUE(shows(tile(1, 0), 16));
}

TEST_F(WallTest, DigitEnlargesATileAndEscapeShowsAllAgain) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(0, 0), 0));
    for (int i = 0; i < 4; ++i) {
        server->key(std::to_string(i + 1));
        EXPECT_TRUE(shows(whole, 16 * i)) << i;
        server->key("Escape");
        EXPECT_TRUE(shows(tile(1, 1), 48));
    }
}

TEST_F(WallTest, KeysActOnTheEnlargedDecoderOnly) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(1, 0), 16));
    server->key("Right");
    server->key("2");
    ASSERT_TRUE(shows(whole, 16)) << "without an enlarged tile, an arrow does nothing";
    server->key("Right");
    EXPECT_TRUE(shows(whole, 17)) << "the next source";
    server->key("0");
    EXPECT_TRUE(shows(whole, 16)) << "a digit selects a source of the enlarged decoder";
    server->key("1");
    EXPECT_TRUE(shows(whole, 17));
    server->key("Escape");
    EXPECT_TRUE(shows(tile(0, 0), 0));
    EXPECT_TRUE(shows(tile(1, 0), 17));
    EXPECT_TRUE(shows(tile(0, 1), 32));
    EXPECT_TRUE(shows(tile(1, 1), 48));
}

TEST_F(WallTest, KilledDecoderIsMarkedAndTheOthersGoOn) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(0, 1), 32));
    decoder(2).signal(SIGKILL);
    EXPECT_TRUE(becomesMarked(tile(0, 1), true));
    EXPECT_EQ(colourIn(tile(0, 1), 0.5, 0.2), 0x705010U) << "its last picture stays";
    for (const auto& [column, row] : {std::pair(0, 0), std::pair(1, 0), std::pair(1, 1)}) {
        EXPECT_TRUE(moves(tile(column, row)));
        EXPECT_FALSE(isMarked(tile(column, row)));
    }
    server->key("3");
    EXPECT_TRUE(becomesMarked(whole, true));
    server->key("Escape");
    EXPECT_TRUE(shows(tile(0, 0), 0));
    startDecoder(2, 0x705010);
    EXPECT_TRUE(becomesMarked(tile(0, 1), false)) << "it runs again";
    EXPECT_TRUE(moves(tile(0, 1)));
}

TEST_F(WallTest, DecoderWithoutNewPicturesIsMarked) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(0, 0), 0));
    decoder(0).signal(SIGSTOP);
    EXPECT_TRUE(becomesMarked(tile(0, 0), true));
    EXPECT_TRUE(moves(tile(1, 0)));
    decoder(0).signal(SIGCONT);
    EXPECT_TRUE(becomesMarked(tile(0, 0), false));
}

TEST_F(WallTest, RootWithoutADecoderIsMarked) {
    startFourDecoders();
    decoder(3).signal(SIGKILL);
    decoder(3).waitForEnd();
    std::filesystem::remove_all(root(3) + "/run");
    startWall("2x2");
    EXPECT_TRUE(becomesMarked(tile(1, 1), true));
    EXPECT_TRUE(moves(tile(0, 0)));
}

TEST_F(WallTest, TextsOfADecoderAreInItsTile) {
    startDecoder(0, 0x204080);
    startDecoder(1, 0x206020, {720, 540}, "MMMMMMMMMM");
    startWall("2x2");
    ASSERT_TRUE(shows(tile(1, 0), 16));
    const auto hasWhite = [&](const Rectangle& at) {
        const x_server::Image image = server->part(at.x, at.y, at.width, at.height / 3);
        return std::ranges::count(image.pixels, 0xffffffU) > 50;
    };
    EXPECT_TRUE(eventually([&] { return hasWhite(tile(1, 0)); }));
    EXPECT_FALSE(hasWhite(tile(0, 0)));
    server->key("2");
    EXPECT_TRUE(eventually([&] { return hasWhite({0, 0, 960, 720}); })) << "rendered for the new size";
}

TEST_F(WallTest, KilledTileProcessIsStartedAgain) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(1, 0), 16));
    const int first = tileProcess(1);
    ASSERT_GT(first, 0);
    kill(first, SIGKILL);
    EXPECT_TRUE(eventually([&] {
        const int now = tileProcess(1);
        return now > 0 && now != first;
    }));
    EXPECT_TRUE(moves(tile(1, 0)));
    server->key("2");
    ASSERT_TRUE(shows(whole, 16));
    EXPECT_TRUE(eventually([&] {
        server->key("Right");
        return shows(whole, 17);
    })) << "the new process carries out keys";
}

TEST_F(WallTest, EndsItsTileProcesses) {
    startFourDecoders();
    startWall("2x2");
    ASSERT_TRUE(shows(tile(0, 0), 0));
    ASSERT_TRUE(eventually([&] { return tileProcess(3) > 0; }));
    wall->signal(SIGTERM);
    const auto status = wall->waitForEnd();
    ASSERT_TRUE(status);
    EXPECT_EQ(*status, 0);
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(tileProcess(i), -1) << i;
}

TEST_F(WallTest, MistakesOfTheCommandLineAreExplained) {
    startDecoder(0, 0);
    startDecoder(1, 0);
    const auto mistake = [&](const std::vector<std::string>& arguments) {
        std::vector<std::string> command{MONITOR_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        const appliance::Finished done = appliance::runToEnd(command, {{"DISPLAY", server->display()}});
        EXPECT_EQ(done.status, 2) << done.output << done.errors;
        return done.errors;
    };
    EXPECT_THAT(mistake({"--wall", "9x9", root(0)}), HasSubstr("--wall 9x9: a wall has 1 to 8 columns"));
    EXPECT_THAT(mistake({"--wall", "1x1", root(0), root(1)}), HasSubstr("1 tiles, but there are 2"));
    EXPECT_THAT(mistake({"--wall", "2x2"}), HasSubstr("needs the appliance root"));
    EXPECT_THAT(mistake({"--wall", "2x2", root(0), root(7)}), HasSubstr("is not a folder"));
    EXPECT_THAT(mistake({root(0)}), HasSubstr("--wall"));
}

} // namespace
} // namespace screen
