// decoderctl: commands say what the decoder will do with them, and whether it has done it.
#include "tests/appliance/control_fixture.h"

#include <csignal>
#include <sstream>
#include <unistd.h>

namespace {

using appliance::Finished;
using appliance::Process;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

class Commands : public Control {
protected:
    void playIn(const std::string& mode) {
        becomeTheDecoder();
        configure("[Decoder]\nSequenceMode = " + mode +
                  "\nConnected = yes\n[Alarm]\nEnabled = yes\nDisplayTime = 10\n[Encoder.Yard]\nAddress = "
                  "127.0.0.1:9\nAutoEnabled = yes\nManualEnabled = yes\n");
        setConnectedInfo(true);
    }

    // A command that keeps running while the test answers it as the decoder would.
    std::unique_ptr<Process> begin(const std::string& command) const {
        return std::make_unique<Process>(std::vector<std::string>{HOUSE_PROGRAMS "/decoderctl", command},
                                         std::map<std::string, std::string>{{"LIBCOMMON_LOG", "stderr"}},
                                         output());
    }

    std::string output() const { return root + "/output"; }

    static int statusOf(Process& process) {
        const std::optional<int> status = process.waitForEnd();
        return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    }
};

TEST_F(Commands, AlarmInAutomaticModeWaitsOrIsDropped) {
    playIn("auto");
    EXPECT_THAT(ctl({"alarm", "0", "fire"}).output, HasSubstr("it waits: alarms show in manual mode only"));
    EXPECT_EQ(ctl({"set", "Decoder.SequenceMode", "manual"}).status, 0);
    EXPECT_THAT(ctl({"alarm", "0"}).output,
                HasSubstr("it waits: the decoder is in automatic mode until the next"));
    EXPECT_EQ(ctl({"set", "Alarm.Enabled", "no"}).status, 0);
    EXPECT_THAT(ctl({"alarm", "0"}).output, HasSubstr("the decoder drops it: Alarm.Enabled is not \"yes\""));
}

TEST_F(Commands, AlarmInManualModeIsOnlyRaised) {
    playIn("manual");
    EXPECT_EQ(ctl({"alarm", "0"}).output, "alarm raised for 0 \"Yard\"\n");
    osdPrintf(1, 10, "ALARM: Yard");
    EXPECT_THAT(ctl({"alarm", "0"}).output,
                HasSubstr("the decoder drops it if the alarm before still shows then"));
}

TEST_F(Commands, AlarmOfADisconnectedDecoder) {
    playIn("auto");
    setConnectedInfo(false);
    EXPECT_THAT(ctl({"alarm", "0"}).output, HasSubstr("the decoder is locked and drops it afterwards"));
    ParamWrapper(0, true)["Decoder.Connected"] = "no";
    EXPECT_THAT(ctl({"alarm", "0"}).output, HasSubstr("drops it: it is disconnected and in automatic mode"));
}

TEST_F(Commands, ReconnectAndFlushSayWhatWillHappen) {
    playIn("auto");
    EXPECT_THAT(ctl({"reconnect"}).output, HasSubstr("not locked: the request waits and ends the next lock"));
    EXPECT_THAT(ctl({"flush"}).output, HasSubstr("the picture stays"));
    setConnectedInfo(false); // locked
    EXPECT_THAT(ctl({"reconnect"}).output, HasSubstr("the lock ends and the decoder connects"));
    EXPECT_THAT(ctl({"flush"}).output, HasSubstr("when the lock ends"));
    EXPECT_THAT(ctl({"status"}).output, HasSubstr("connected   no, locked or about to connect\n"));
    ParamWrapper(0, true)["Decoder.Connected"] = "no";
    EXPECT_THAT(ctl({"reconnect"}).output, HasSubstr("the decoder is disconnected and stays so"));
    EXPECT_EQ(ctl({"flush"}).output, "what was detected is forgotten\n");
}

TEST_F(Commands, DisconnectReportsAfterItHasHappened) {
    playIn("auto");
    const auto command = begin("disconnect");
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_TRUE(ParamWrapper(0, true)["Decoder.Connected"] == "no");
    appliance::pause(std::chrono::milliseconds(300));
    EXPECT_TRUE(command->running());
    EXPECT_EQ(appliance::readFile(output()), "");
    setConnectedInfo(false);
    EXPECT_EQ(statusOf(*command), 0);
    EXPECT_EQ(appliance::readFile(output()), "disconnected\n");
    EXPECT_EQ(ctl({"disconnect"}).output, "already disconnected\n");
}

TEST_F(Commands, DisconnectThatDoesNotHappenIsAFailure) {
    playIn("auto");
    const Finished finished = ctl({"disconnect", "--wait", "0.5"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.errors,
                HasSubstr("the decoder has not disconnected within 0.5 seconds; it has the request"));
    EXPECT_EQ(ctl({"disconnect", "--wait", "0"}).output, "the decoder has the request to disconnect\n");
}

TEST_F(Commands, DecoderThatEndsMeanwhileIsReported) {
    playIn("auto");
    const auto command = begin("disconnect");
    nextEvent();
    removeEventQueue();
    running = false;
    EXPECT_EQ(statusOf(*command), 1);
    EXPECT_THAT(appliance::readFile(output()), HasSubstr("no decoder is running"));
}

TEST_F(Commands, ConnectReportsAfterItHasHappened) {
    playIn("auto");
    EXPECT_EQ(ctl({"connect"}).output, "already connected\n");
    setConnectedInfo(false);
    ParamWrapper(0, true)["Decoder.Connected"] = "no";
    const auto command = begin("connect");
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_TRUE(ParamWrapper(0, true)["Decoder.Connected"] == "yes");
    setConnectedInfo(true);
    EXPECT_EQ(statusOf(*command), 0);
    EXPECT_EQ(appliance::readFile(output()), "connected\n");
}

TEST_F(Commands, ConnectWithoutAnEnabledSourceIsAFailure) {
    playIn("auto");
    setConnectedInfo(false);
    ParamWrapper(0, true)["Encoder.Yard.AutoEnabled"] = "no";
    ParamWrapper(0, true)["Decoder.Connected"] = "no";
    const auto command = begin("connect");
    nextEvent();
    setConnectedInfo(true);
    EXPECT_EQ(statusOf(*command), 1);
    EXPECT_THAT(appliance::readFile(output()), HasSubstr("no source is enabled in the configured mode"));
}

TEST_F(Commands, ApplyDisconnectsFlushesAndConnects) {
    playIn("auto");
    EXPECT_THAT(ctl({"apply"}).output, HasSubstr("nothing to apply"));
    EXPECT_EQ(ctl({"set", "Decoder.SequenceMode", "manual"}).status, 0);
    const auto command = begin("apply");
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_TRUE(ParamWrapper(0, true)["Decoder.Connected"] == "no");
    setConnectedInfo(false);
    EXPECT_EQ(nextEvent().id, EID_FLUSHCACHE);
    EXPECT_EQ(nextEvent().id, EID_CONNECTPROPERTYCHANGED);
    EXPECT_TRUE(ParamWrapper(0, true)["Decoder.Connected"] == "yes");
    setConnectedInfo(true);
    EXPECT_EQ(statusOf(*command), 0);
    EXPECT_THAT(appliance::readFile(output()), HasSubstr("applied: the decoder has connected"));
    EXPECT_THAT(ctl({"status"}).output, HasSubstr("mode        manual\n"));
}

TEST_F(Commands, ApplyOfADisconnectedDecoderOnlyFlushes) {
    playIn("auto");
    setConnectedInfo(false);
    ParamWrapper(0, true)["Decoder.Connected"] = "no";
    EXPECT_THAT(ctl({"apply"}).output, HasSubstr("reads the configuration at the next connect"));
    EXPECT_EQ(nextEvent().id, EID_FLUSHCACHE);
}

TEST_F(Commands, TextsOfAnEncoderAreShownPrintable) {
    playIn("auto");
    std::filesystem::create_directories(root + "/run/decoder/source/0");
    appliance::writeFile(root + "/run/decoder/source/0/Model", "Cam\x1b]0;x\x07\xff\xc3\n");
    appliance::writeFile(root + "/run/decoder/source/0/ErrorCode", "\x1b[31m\xfe\n");
    appliance::writeFile(root + "/run/decoder/source/0/DetectionTrace", "detection \x1b[2J\xff\n");
    for (const char* command : {"source", "explain"}) {
        const Finished finished = ctl({command, "0"});
        EXPECT_EQ(finished.status, 0) << command << finished.errors;
        EXPECT_THAT(finished.output,
                    AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\xff")), Not(HasSubstr("\x07"))));
        EXPECT_FALSE(ctlJson({command, "0"}).is_discarded()) << command;
    }
    EXPECT_THAT(ctl({"source", "0"}).output, HasSubstr("Model=Cam"));
    EXPECT_THAT(ctl({"sources"}).output, Not(HasSubstr("\x1b")));
    EXPECT_THAT(ctl({"select", "\x1b[2J"}).errors, Not(HasSubstr("\x1b")));
}

TEST_F(Commands, WatchInJsonIsOneObjectPerLineWithDates) {
    playIn("auto");
    std::istringstream lines(ctl({"--json", "watch", "--seconds", "0.3"}).output);
    int count = 0;
    for (std::string line; std::getline(lines, line); ++count) {
        const nlohmann::json json = nlohmann::json::parse(line, nullptr, false);
        ASSERT_TRUE(json.is_object()) << line;
        EXPECT_THAT(json["time"].get<std::string>(),
                    testing::MatchesRegex(
                        "20[0-9][0-9]-[0-9][0-9]-[0-9][0-9]T[0-9:]+\\.[0-9]+[+-][0-9][0-9]:[0-9][0-9]"));
        EXPECT_TRUE(json.contains("what") && json.contains("value")) << line;
    }
    EXPECT_GE(count, 8);
}

TEST_F(Commands, SweepIsRefusedWhileADecoderRuns) {
    playIn("auto");
    const Finished refused = ctl({"sweep"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("a decoder is running under " + root + " (pid " +
                                          std::to_string(getpid()) + "): nothing was removed"));
    EXPECT_EQ(ctl({"status"}).status, 0) << "the decoder is as it was";
}

TEST_F(Commands, SweepRemovesWhatAKilledDecoderLeft) {
    const pid_t pid = fork();
    if (pid == 0) {
        const bool made = initEventQueue() == 0;
        appliance::writeFile(root + "/var/tmp/barrier." + std::to_string(getpid()), "");
        _exit(made ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(pid, &status, 0), pid);
    ASSERT_EQ(status, 0);
    const Finished swept = ctl({"sweep"});
    EXPECT_EQ(swept.status, 0) << swept.errors;
    EXPECT_THAT(swept.output,
                AllOf(HasSubstr("removed: "), HasSubstr("1 barrier"), HasSubstr("1 message queue")));
    EXPECT_TRUE(std::filesystem::is_empty(root + "/var/tmp"));
    EXPECT_EQ(ctl({"sweep"}).output, "nothing was left behind\n");
}

} // namespace
