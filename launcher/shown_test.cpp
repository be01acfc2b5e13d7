#include "launcher/shown.h"

#include "launcher/machine_test.h"

namespace {

// A player shows source 1, and this is logged already.
struct Shown : MachineTest {
    Shown() {
        fake::statusValues[{1, "VideoSourceType"}] = "mjpeg";
        fake::statusValues[{2, "VideoSourceType"}] = "rtsp-tcp";
        enter(AUTO_WAIT_FOR_NEXT_SOURCE_TIMEOUT);
        playing(1);
        logShownSource();
        fake::log.clear();
    }

    // The log lines about the screen.
    static Log screenLines() {
        Log lines;
        for (const fake::LogLine& line : fake::log)
            if (line.text.starts_with("Screen:"))
                lines.push_back(line);
        return lines;
    }
    static void run(int turns) {
        while (turns-- > 0)
            runState();
    }
};

} // namespace

TEST_F(Shown, AStartedPlayerIsNamedWithIndexNameAddressAndKind) {
    machine.shown.clear();
    launching(2);
    setState(SINGLE_PLAYER_STARTED);
    run(1);
    EXPECT_EQ(screenLines(), (Log{{6, "Screen: source 2, Cam 2 (10.0.0.2), rtsp-tcp"}}));
}

TEST_F(Shown, ASwitchNamesTheNewSourceOnce) {
    launching(2);
    setState(DONE_SWITCHED_PLAYER);
    run(1);
    setState(DONE_SWITCHED_PLAYER);
    run(1);
    EXPECT_EQ(screenLines(), (Log{{6, "Screen: source 2, Cam 2 (10.0.0.2), rtsp-tcp"}}));
}

TEST_F(Shown, APtzMoveNamesTheOtherSourceOfTheInput) {
    machine.pendingSource = 2;
    setState(SEND_ONLY_PTZ);
    run(1);
    EXPECT_EQ(screenLines(), (Log{{6, "Screen: source 2, Cam 2 (10.0.0.2), rtsp-tcp"}}));
}

TEST_F(Shown, ASourceWithoutADetectedKindOrRecordIsNamedTheSameWay) {
    machine.currentSource = 99;
    logShownSource();
    EXPECT_EQ(screenLines(), (Log{{6, "Screen: source 99,  (), kind unknown"}}));
}

TEST_F(Shown, TheReasonWhyThePictureEndedIsLogged) {
    struct Row {
        State state;
        const char* reason;
    };
    for (const Row& row :
         {Row{CURRENT_PLAYER_CRASHED_DURING_PLAYING, "the player exited while it was playing"},
          Row{CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH,
              "the player exited before the next one was ready"},
          Row{CURRENT_PLAYER_CRASHED_DURING_SWITCH, "the player exited during a switch"},
          Row{BOTH_PLAYERS_DOWN_AFTER_PENDING_CRASH, "both players exited during a switch"},
          Row{CURRENT_PLAYER_CRASHED_DURING_PAUSE, "the player exited while the sequence was paused"},
          Row{PLAYING_STOPPED, "playback was stopped"},
          Row{CURRENT_PLAYER_STOPPED_AFTER_REQUEST_FAILED,
              "the encoder of source 2, Cam 2, could not be detected"}}) {
        playing(1);
        logShownSource();
        launching(2);
        fake::log.clear();
        setState(row.state);
        run(1);
        EXPECT_EQ(screenLines(), (Log{{6, std::string("Screen: nothing, ") + row.reason}}));
    }
}

TEST_F(Shown, WithoutAPictureNothingEnds) {
    machine.shown.clear();
    setState(PLAYING_STOPPED);
    run(1);
    EXPECT_EQ(screenLines(), Log{});
}

TEST_F(Shown, APictureThatComesBackIsLoggedAgain) {
    logNothingShown("a test");
    logShownSource();
    EXPECT_EQ(screenLines(),
              (Log{{6, "Screen: nothing, a test"}, {6, "Screen: source 1, Cam 1 (10.0.0.1), mjpeg"}}));
}

TEST_F(Shown, TheQuotedLinesKeepTheirOrder) {
    setState(CURRENT_PLAYER_CRASHED_DURING_PENDING_LAUNCH);
    fake::log.clear();
    run(1);
    EXPECT_EQ(fake::log, (Log{{6, "Current player exited during pending launch"},
                              {6, "Screen: nothing, the player exited before the next one was ready"}}));
}
