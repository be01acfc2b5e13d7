// decoderctl: what is configured, what is in force, and mistakes in the configuration.
#include "tests/appliance/control_fixture.h"

#include <unistd.h>

namespace {

using appliance::Finished;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::string goodConfiguration = "[Decoder]\nSequenceMode = auto\nAutoDetectTimeout = 10\n"
                                      "[Encoder.Front door]\nAddress = 127.0.0.1:8081\nAutoEnabled = yes\n"
                                      "DisplayTime = 10\nResolution = default\nCompression = default\n";

// ---- When a value is in force

TEST_F(Control, SetSaysWhenTheValueIsInForce) {
    EXPECT_EQ(ctl({"set", "Alarm.Enabled", "yes"}).output,
              "Alarm.Enabled: in force when the decoder starts\n");
    becomeTheDecoder();
    setConnectedInfo(true);
    const std::vector<std::vector<std::string>> all{
        {"Alarm.Enabled", "no", "in force now\n"},
        {"Decoder.SequenceMode", "auto", "in force at the next connect (decoderctl apply: at once)\n"},
        {"Decoder.VideoMode", "ntsc", "in force with the next player (decoderctl apply: at once)\n"},
        {"Decoder.AutoConnect", "no", "in force when the supervisor starts next\n"},
        {"Encoder.Front door.UserName", "root",
         "in force at the next detection of the encoder (decoderctl apply: at once)\n"},
    };
    for (const std::vector<std::string>& one : all) {
        EXPECT_EQ(ctl({"set", one[0], one[1]}).output, one[0] + ": " + one[2]);
    }
    setConnectedInfo(false);
    EXPECT_EQ(ctl({"set", "Decoder.SequenceMode", "manual"}).output,
              "Decoder.SequenceMode: in force when the decoder connects\n");
    EXPECT_EQ(ctl({"set", "--force", "Colour.Of", "sky"}).output,
              "Colour.Of: no program of the decoder reads it\n");
}

TEST_F(Control, StatusShowsTheModeInForceAndTheConfiguredOne) {
    becomeTheDecoder();
    configure(goodConfiguration);
    setConnectedInfo(true);
    EXPECT_THAT(ctl({"status"}).output, AllOf(HasSubstr("mode        auto\n"), Not(HasSubstr("configured"))));
    EXPECT_EQ(ctl({"set", "Decoder.SequenceMode", "manual"}).status, 0);
    EXPECT_THAT(ctl({"status"}).output,
                AllOf(HasSubstr("mode        auto; configured: manual, in force at the next connect\n"),
                      HasSubstr("configured  changed since the decoder connected; decoderctl apply")));
    EXPECT_EQ(ctlJson({"status"})["mode"], "auto");
    EXPECT_EQ(ctlJson({"status"})["configuredMode"], "manual");
    setConnectedInfo(true); // it has connected again
    EXPECT_THAT(ctl({"status"}).output, HasSubstr("mode        manual\n"));
}

TEST_F(Control, NewAndChangedSourcesAreMarkedUntilTheNextConnect) {
    becomeTheDecoder();
    configure(goodConfiguration);
    setConnectedInfo(true);
    EXPECT_THAT(ctl({"sources"}).output, Not(HasSubstr("not in force")));
    EXPECT_EQ(ctl({"set", "Encoder.Front door.DisplayTime", "20"}).status, 0);
    EXPECT_EQ(ctl({"set", "Encoder.Cellar.Address", "127.0.0.1:9"}).status, 0);
    EXPECT_THAT(ctl({"sources"}).output,
                AllOf(HasSubstr("not in force before the next connect (changed: DisplayTime)\n"),
                      HasSubstr("not in force before the next connect (new)\n")));
    EXPECT_THAT(ctl({"source", "Cellar"}).output, HasSubstr("InForce=no, new\n"));
    EXPECT_THAT(ctl({"status"}).output, HasSubstr("changed since the decoder connected, 2 of the sources"));
    EXPECT_EQ(ctlJson({"sources"})[0]["changed"], nlohmann::json({"DisplayTime"}));
    setConnectedInfo(true);
    EXPECT_THAT(ctl({"sources"}).output, Not(HasSubstr("not in force")));
}

// ---- Mistakes

TEST_F(Control, SetRefusesABadAddressAndNamesTheRightForm) {
    const std::vector<std::pair<std::string, std::string>> all{
        {"http://10.0.0.7:8080/", "has a scheme; write \"10.0.0.7:8080\""},
        {"10.0.0.7/view", "has a path; write \"10.0.0.7\""},
        {"10.0.0.7:70000", "the port is not a number from 1 to 65535; write host or host:port"},
    };
    for (const auto& [address, text] : all) {
        const Finished finished = ctl({"set", "Encoder.Front door.Address", address});
        EXPECT_EQ(finished.status, 1) << address;
        EXPECT_THAT(finished.errors, HasSubstr(text)) << address;
    }
    EXPECT_EQ(file(), configuration);
}

TEST_F(Control, MistypedNamesGetTheNearestOne) {
    EXPECT_THAT(ctl({"set", "Decoder.SequenzMode", "auto"}).errors, HasSubstr("is it Decoder.SequenceMode?"));
    EXPECT_THAT(ctl({"get", "Encoder.Front door.Adress"}).errors,
                HasSubstr("is it Encoder.Front door.Address?"));
}

TEST_F(Control, CheckFindsTheMistakesOfTheDecodersOwnFile) {
    const Finished finished = ctl({"check"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.output,
                AllOf(HasSubstr("/etc/decoder/decoder.conf:3: SequenceMode takes auto or manual, not"),
                      HasSubstr("give the comment a line of its own"), HasSubstr(" mistakes\n")));
    EXPECT_THAT(finished.output, Not(HasSubstr("s3cret")));
    configure(goodConfiguration);
    const Finished good = ctl({"check"});
    EXPECT_EQ(good.status, 0) << good.output;
    EXPECT_EQ(good.output, root + "/etc/decoder/decoder.conf: no mistakes\n");
}

TEST_F(Control, CheckReadsAnyFileAndStandardInput) {
    const std::string other = root + "/other.conf";
    appliance::writeFile(other, goodConfiguration + "[Alarm]\nEnabled = Yes\n");
    const Finished finished = ctl({"check", other});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, other + ":11: Enabled takes yes or no, not \"Yes\"; write \"yes\": values are "
                                       "in small letters\n1 mistake\n");
    EXPECT_EQ(ctl({"check", "-"}, goodConfiguration).status, 0);
    EXPECT_EQ(ctlJson({"check", other})["findings"][0]["line"], 11);
    const Finished missing = ctl({"check", root + "/missing.conf"});
    EXPECT_EQ(missing.status, 1);
    EXPECT_THAT(missing.errors, HasSubstr("No such file or directory"));
    EXPECT_THAT(ctl({"check", root}).errors, HasSubstr("Is a directory"));
}

// ---- Names for people and for the shell

TEST_F(Control, ParametersIncludeThoseOfEachSource) {
    EXPECT_THAT(ctl({"parameters", "--names"}).output,
                AllOf(HasSubstr("Decoder.SequenceMode\n"), HasSubstr("Encoder.Front door.Address\n"),
                      HasSubstr("Encoder.x3.DisplayTime\n"), HasSubstr("Decoder.Info.Connected\n")));
    EXPECT_EQ(ctl({"parameters", "--values", "Encoder.x3.AutoEnabled"}).output, "yes\nno\n");
    EXPECT_EQ(ctl({"sources", "--names"}).output, "Front door\nFront yard\nGarage\n");
    EXPECT_THAT(ctl({"parameters"}).output, HasSubstr("auto or manual; in force at the next connect\n"));
}

class Completion : public Control {
protected:
    // The completions that the shell proposes for the last of the words.
    std::string proposed(const std::vector<std::string>& words) const {
        std::string array;
        for (const std::string& word : words) {
            array += " '" + word + '\'';
        }
        const std::string script = ". " HOUSE_ROOT
                                   "/packaging/completion/decoderctl\nCOMP_WORDS=(decoderctl" +
                                   array + ")\nCOMP_CWORD=" + std::to_string(words.size()) +
                                   "\n_decoderctl\nprintf '%s\\n' \"${COMPREPLY[@]}\"";
        const Finished finished =
            appliance::runToEnd({"/bin/bash", "-c", script},
                                {{"APPLIANCE_ROOT", root}, {"PATH", HOUSE_PROGRAMS ":/usr/bin:/bin"}});
        EXPECT_EQ(finished.errors, "");
        return finished.output;
    }
};

TEST_F(Completion, KnowsCommandsSourcesParametersAndValues) {
    EXPECT_EQ(proposed({"discon"}), "disconnect\n");
    EXPECT_EQ(proposed({"sw"}), "sweep\n");
    EXPECT_EQ(proposed({"select", "Front\\ y"}), "Front\\ yard\n");
    EXPECT_EQ(proposed({"set", "Decoder.Seq"}), "Decoder.SequenceMode\n");
    EXPECT_EQ(proposed({"get", "Encoder.x3.Addr"}), "Encoder.x3.Address\n");
    EXPECT_EQ(proposed({"set", "Encoder.Front\\ d"}).substr(0, 25), "Encoder.Front\\ door.Name\n");
    EXPECT_EQ(proposed({"set", "Encoder.x3.AutoEnabled", ""}), "yes\nno\n");
    EXPECT_EQ(proposed({"set", "Decoder.VideoMode", "n"}), "ntsc\n");
}

TEST_F(Completion, KnowsEveryCommand) {
    const std::string help = ctl({"--help"}).output;
    const std::string all = proposed({""});
    for (std::size_t at = help.find("Subcommands:"); (at = help.find("\n  ", at)) != std::string::npos;
         ++at) {
        const std::string command = help.substr(at + 3, help.find(' ', at + 3) - at - 3);
        if (!command.empty() && command[0] >= 'a' && command[0] <= 'z') {
            EXPECT_THAT('\n' + all, HasSubstr('\n' + command + '\n'));
        }
    }
}

// ---- Permission

TEST_F(Control, WithoutPermissionStatusSaysSo) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    becomeTheDecoder();
    const auto asNobody = [&](const std::string& command) {
        return appliance::runToEnd({"/usr/bin/setpriv", "--reuid", "65534", "--regid", "65534",
                                    "--clear-groups", HOUSE_PROGRAMS "/decoderctl", command},
                                   {{"APPLIANCE_ROOT", root}, {"LIBCOMMON_LOG", "stderr"}});
    };
    if (asNobody("--version").status != 0) {
        GTEST_SKIP() << "another user can't run the programs of this build";
    }
    std::filesystem::permissions(root, std::filesystem::perms(0755));
    std::filesystem::permissions(root + "/etc/decoder/decoder.conf", std::filesystem::perms(0640));
    for (const char* command : {"status", "lock"}) {
        const Finished finished = asNobody(command);
        EXPECT_EQ(finished.status, 1) << command;
        EXPECT_THAT(finished.errors, HasSubstr("not allowed to talk to the decoder under " + root))
            << command;
    }
    EXPECT_THAT(asNobody("sources").errors,
                HasSubstr("not allowed to read " + root + "/etc/decoder/decoder.conf"));
}

} // namespace
