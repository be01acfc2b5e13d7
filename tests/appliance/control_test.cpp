// decoderctl: events, parameters and reports.
#include "appliance/screen/frame_store.h"
#include "tests/appliance/control_fixture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using appliance::Finished;
using testing::AllOf;
using testing::HasSubstr;
using testing::StartsWith;

namespace fs = std::filesystem;

// The command sends exactly this event.
class ControlEvents : public Control {
protected:
    void expectEvent(const std::vector<std::string>& arguments, int id, int value1 = 0,
                     const std::string& text = "") {
        const Finished finished = ctl(arguments);
        ASSERT_EQ(finished.status, 0) << finished.errors;
        const Event event = nextEvent();
        EXPECT_EQ(event.id, id);
        EXPECT_EQ(event.value1, value1);
        EXPECT_STREQ(reinterpret_cast<const char*>(event.payload), text.c_str());
    }
};

// ---- Without a decoder

TEST_F(Control, WithoutADecoderEveryCommandThatNeedsOneSaysSo) {
    const std::vector<std::vector<std::string>> commands{{"status"},
                                                         {"select", "0"},
                                                         {"alarm", "0"},
                                                         {"lock"},
                                                         {"reconnect"},
                                                         {"flush"},
                                                         {"connect"},
                                                         {"disconnect"},
                                                         {"button"},
                                                         {"snapshot", "a.png"},
                                                         {"apply"},
                                                         {"watch"},
                                                         {"set", "Decoder.Connected", "yes"}};
    for (const std::vector<std::string>& command : commands) {
        const Finished finished = ctl(command);
        EXPECT_EQ(finished.status, 1) << command[0];
        EXPECT_THAT(finished.errors, HasSubstr("no decoder is running under " + root)) << command[0];
    }
    EXPECT_EQ(file(), configuration) << "nothing was written";
}

TEST_F(Control, DecoderThatWasKilledIsNotRunning) {
    const pid_t pid = fork();
    if (pid == 0) {
        _exit(initEventQueue() == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(pid, &status, 0);
    ASSERT_EQ(status, 0);
    EXPECT_THAT(ctl({"select", "0"}).errors, HasSubstr("no decoder is running"));
    EXPECT_THAT(ctl({"status"}).errors, HasSubstr("no decoder is running"));
    appliance::removeQueues();
}

TEST_F(Control, FilesAreShownWithoutADecoder) {
    EXPECT_THAT(ctl({"sources"}).output,
                AllOf(HasSubstr("Front door"), HasSubstr("127.0.0.1:8083"), HasSubstr("Garage")));
    EXPECT_EQ(ctl({"get", "Decoder.AutoDetectTimeout"}).output, "5\n");
}

TEST_F(Control, WithoutAnyFilesThereAreNoSources) {
    fs::remove_all(root);
    EXPECT_THAT(ctl({"sources"}).output, HasSubstr("no sources are configured"));
    EXPECT_EQ(ctl({"get", "Decoder.SequenceMode"}).status, 1);
}

// ---- Events

TEST_F(ControlEvents, EachCommandSendsItsEvent) {
    becomeTheDecoder();
    expectEvent({"select", "1"}, EID_SELECT, 1);
    expectEvent({"select", "front door"}, EID_SELECT, 0);
    expectEvent({"select", "Gar"}, EID_SELECT, 2);
    expectEvent({"lock"}, EID_LOCK);
    expectEvent({"reconnect"}, EID_RECONNECT);
    expectEvent({"flush"}, EID_FLUSHCACHE);
    expectEvent({"alarm", "2", "Door", "is open"}, EID_ALARM, 2, "Door is open");
    expectEvent({"alarm", "2"}, EID_ALARM, 2);
}

TEST_F(Control, LongAlarmTextIsCutAtACharacter) {
    becomeTheDecoder();
    const std::string text = std::string(38, 'a') + "\xc3\xbc and more";
    const Finished finished = ctl({"alarm", "0", text});
    ASSERT_EQ(finished.status, 0) << finished.errors;
    EXPECT_THAT(finished.output, HasSubstr("the text was cut to \"" + std::string(38, 'a') + "\""));
    const Event event = nextEvent();
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(event.payload)), std::string(38, 'a'));
}

TEST_F(Control, SourcesThatDoNotExistAreRefused) {
    becomeTheDecoder();
    for (const char* wanted : {"3", "cellar", "Front", ""}) {
        const Finished finished = ctl({"select", wanted});
        EXPECT_EQ(finished.status, 1) << wanted;
        EXPECT_THAT(finished.errors, StartsWith("decoderctl: ")) << wanted;
    }
    Event event{};
    event.id = EID_LOCK;
    ASSERT_EQ(sendEvent(&event), 0);
    EXPECT_EQ(nextEvent().id, EID_LOCK) << "nothing was sent before it";
}

TEST_F(Control, FullQueueIsReported) {
    becomeTheDecoder();
    Finished finished;
    for (int i = 0; i < 2000 && finished.status <= 0; ++i) {
        Event event{};
        event.id = EID_LOCK;
        if (sendEvent(&event) != 0) {
            finished = ctl({"lock"});
        }
    }
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.errors, HasSubstr("queue is full"));
}

// ---- The button

TEST_F(Control, ButtonWritesIntoTheFifo) {
    becomeTheDecoder();
    const std::string button = root + "/proc/sys/dev/button_videoselect";
    ASSERT_EQ(mkfifo(button.c_str(), 0600), 0);
    EXPECT_THAT(ctl({"button"}).errors, HasSubstr("no program reads the button"));
    const int fd = open(button.c_str(), O_RDWR | O_CLOEXEC);
    EXPECT_EQ(ctl({"button"}).status, 0);
    EXPECT_EQ(ctl({"button", "--hold"}).status, 0);
    char presses[3] = {};
    EXPECT_EQ(read(fd, presses, 2), 2);
    EXPECT_STREQ(presses, "12");
    close(fd);
}

TEST_F(Control, ButtonThatIsAnOrdinaryFileIsNotPressed) {
    becomeTheDecoder();
    appliance::writeFile(root + "/proc/sys/dev/button_videoselect", "0");
    EXPECT_THAT(ctl({"button"}).errors, HasSubstr("is not a FIFO"));
    EXPECT_EQ(appliance::readFile(root + "/proc/sys/dev/button_videoselect"), "0");
}

// ---- Parameters

TEST_F(Control, SetKeepsCommentsAndOrder) {
    EXPECT_EQ(ctl({"set", "decoder.autodetecttimeout", "7"}).status, 0);
    EXPECT_EQ(ctl({"get", "Decoder.AutoDetectTimeout"}).output, "7\n");
    EXPECT_THAT(file(),
                AllOf(StartsWith("# The house.\n[Decoder]\n"), HasSubstr("[Encoder.Front door]\nAddress")));
}

TEST_F(Control, SetReachesASourceByItsSection) {
    EXPECT_EQ(ctl({"set", "Encoder.Front door.DisplayTime", "12"}).status, 0);
    EXPECT_THAT(ctl({"source", "Front door"}).output, HasSubstr("Configured.DisplayTime=12\n"));
}

TEST_F(Control, SetAddsASource) {
    EXPECT_EQ(ctl({"set", "Encoder.Cellar.Address", "127.0.0.1:9"}).status, 0);
    EXPECT_THAT(ctl({"source", "3"}).output, HasSubstr("Name=Cellar\nAddress=127.0.0.1:9\n"));
}

TEST_F(Control, SetRefusesUnknownNamesAndValues) {
    EXPECT_THAT(ctl({"set", "Decoder.Sequence", "auto"}).errors,
                HasSubstr("is not a parameter of this decoder"));
    EXPECT_THAT(ctl({"set", "Decoder.SequenceMode", "Auto"}).errors,
                HasSubstr("takes auto or manual, not \"Auto\""));
    EXPECT_THAT(ctl({"set", "Decoder.Info.CurrentSource", "1"}).errors,
                HasSubstr("written by the decoder itself"));
    EXPECT_EQ(file(), configuration);
    EXPECT_EQ(ctl({"set", "--force", "Decoder.SequenceMode", "Auto"}).status, 0);
    EXPECT_EQ(ctl({"get", "Decoder.SequenceMode"}).output, "Auto\n");
}

TEST_F(Control, PasswordsComeFromStandardInputAndAreNotShown) {
    EXPECT_EQ(ctl({"set", "Encoder.Front yard.Password", "-"}, "new word\n").status, 0);
    EXPECT_THAT(file(), HasSubstr("new word"));
    const std::string shown = ctl({"source", "1"}).output + ctl({"sources", "--json"}).output;
    EXPECT_THAT(shown, AllOf(HasSubstr("Configured.Password=***"), testing::Not(HasSubstr("s3cret")),
                             testing::Not(HasSubstr("new word"))));
}

TEST_F(Control, FailedWriteIsReported) {
    fs::permissions(root + "/etc/decoder/decoder.conf", fs::perms::owner_read);
    const Finished finished = ctl({"set", "Decoder.AutoDetectTimeout", "7"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.errors, HasSubstr("could not be written"));
    EXPECT_EQ(file(), configuration);
}

TEST_F(Control, ParameterThatIsNotSet) {
    EXPECT_THAT(ctl({"get", "Alarm.Enabled"}).errors, HasSubstr("Alarm.Enabled is not set"));
    EXPECT_THAT(ctl({"get", "Alarm.Enbled"}).errors, HasSubstr("is not a parameter"));
}

// ---- Reports

TEST_F(Control, StatusShowsTheStores) {
    becomeTheDecoder();
    ParamWrapper information(1, true);
    information["Decoder.Info.Connected"] = "yes";
    information["Decoder.Info.CurrentSource"] = 2;
    osdPrintf(1, 0, "ALARM: %s", "Garage");
    set_led(2, 3, 3);
    status(2, "ErrorCode", 29);
    screen::FrameStore store(root + "/run/decoder/screen/frames");
    const screen::PictureShape shape = screen::televisionShape(screen::VideoMode::pal);
    const std::vector<std::uint8_t> grey(screen::bytesOf(shape), 0x80);
    ASSERT_TRUE(store.setMode(screen::VideoMode::pal));
    ASSERT_EQ(store.draw(screen::viewOf(shape, grey.data()), 2).number, 1U);

    const nlohmann::json json = nlohmann::json::parse(ctl({"status", "--json"}).output);
    EXPECT_EQ(json["connected"], true);
    EXPECT_EQ(json["mode"], "auto") << "the mode that a supervisor begins with";
    EXPECT_EQ(json["configuredMode"], "manual # not a comment");
    EXPECT_EQ(json["currentSource"], 2);
    EXPECT_EQ(json["playerPid"], getpid());
    EXPECT_EQ(json["osd"], nlohmann::json({"", "ALARM: Garage", ""}));
    EXPECT_EQ(json["leds"][0]["text"], "amber, blinking");
    EXPECT_EQ(json["frame"]["number"], 1);
    EXPECT_EQ(json["frame"]["source"], 2);
    EXPECT_EQ(json["frame"]["blank"], false);
    EXPECT_THAT(
        ctl({"status"}).output,
        AllOf(HasSubstr("2 \"Garage\" at 127.0.0.1:8083, error 29 (the player was killed by a signal)"),
              HasSubstr("text 1      ALARM: Garage")));
    osdBlank();
    EXPECT_EQ(nlohmann::json::parse(ctl({"status", "--json"}).output)["frame"]["blank"], true);
}

TEST_F(Control, SourceShowsStatusValues) {
    status(0, "VideoSourceType", "mjpeg");
    status(0, "ErrorCode", 0);
    EXPECT_THAT(ctl({"source", "0"}).output,
                AllOf(HasSubstr("Index=0\nName=Front door\nAddress=127.0.0.1:8081\n"),
                      HasSubstr("VideoSourceType=mjpeg\n"), HasSubstr("ErrorCode=0\n")));
    EXPECT_EQ(nlohmann::json::parse(ctl({"--json", "source", "0"}).output)["status"]["VideoSourceType"],
              "mjpeg");
}

TEST_F(Control, SnapshotIsAPng) {
    becomeTheDecoder();
    const std::string file = root + "/shot.png";
    const Finished finished = ctl({"snapshot", file});
    EXPECT_EQ(finished.status, 0) << finished.errors;
    EXPECT_THAT(finished.output, HasSubstr("the screen is blank"));
    EXPECT_THAT(appliance::readFile(file), StartsWith("\x89PNG"));
    EXPECT_THAT(ctl({"snapshot", "-"}).output, StartsWith("\x89PNG"));
    EXPECT_THAT(ctl({"snapshot", file, "--size", "1280x720"}).output, HasSubstr("1280x720"));
    EXPECT_THAT(ctl({"snapshot", file, "--size", "1281x720"}).errors, HasSubstr("is not a size"));
    const Finished refused = ctl({"snapshot", root + "/no/such/folder/shot.png"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, HasSubstr("No such file or directory"));
}

TEST_F(Control, WatchPrintsEachChangeAndEndsByItself) {
    becomeTheDecoder();
    appliance::Process watch({HOUSE_PROGRAMS "/decoderctl", "watch", "--seconds", "60"}, {},
                             root + "/watched");
    const auto watched = [this](const std::string& text) {
        return appliance::eventually(
            [&] { return appliance::readFile(root + "/watched").find(text) != std::string::npos; });
    };
    ASSERT_TRUE(watched("picture    none"));
    osdPrintf(0, 0, "Sequence paused");
    EXPECT_TRUE(watched("text 0     Sequence paused"));
    ParamWrapper(1, true)["Decoder.Info.CurrentSource"] = 1;
    EXPECT_TRUE(watched("source     1 \"Front yard\""));
    watch.signal(SIGINT);
    const std::optional<int> status = watch.waitForEnd();
    ASSERT_TRUE(status.has_value());
    EXPECT_EQ(WEXITSTATUS(*status), 0);
    EXPECT_EQ(ctl({"watch", "--seconds", "0.2"}).status, 0);
}

TEST_F(Control, JsonErrorsAreObjects) {
    const Finished finished = ctl({"--json", "lock"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(nlohmann::json::parse(finished.output)["error"].get<std::string>(),
                HasSubstr("no decoder is running"));
}

TEST_F(Control, UsageErrorsAreTwo) {
    EXPECT_EQ(ctl({}).status, 2);
    EXPECT_EQ(ctl({"explode"}).status, 2);
    EXPECT_EQ(ctl({"select"}).status, 2);
    EXPECT_EQ(ctl({"--help"}).status, 0);
    EXPECT_EQ(ctl({"--version"}).status, 0);
}

} // namespace
