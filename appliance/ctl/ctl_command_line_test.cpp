#include "appliance/ctl/ctl_command_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

namespace {

using testing::HasSubstr;

struct Parsed {
    std::variant<Request, int> result;
    std::string out;
    std::string errors;

    const Request& request() const { return std::get<Request>(result); }
    int status() const { return std::holds_alternative<int>(result) ? std::get<int>(result) : -1; }
};

Parsed parse(std::vector<const char*> words) {
    words.insert(words.begin(), "decoderctl");
    std::ostringstream out;
    std::ostringstream errors;
    auto result = parseCommandLine(static_cast<int>(words.size()), words.data(), out, errors);
    return {std::move(result), out.str(), errors.str()};
}

TEST(CommandLine, EveryCommandIsKnown) {
    const std::vector<std::pair<std::vector<const char*>, Command>> all{
        {{"status"}, Command::Status},
        {{"sources"}, Command::Sources},
        {{"source", "0"}, Command::Source},
        {{"explain", "0"}, Command::Explain},
        {{"parameters"}, Command::Parameters},
        {{"get", "Decoder.Connected"}, Command::Get},
        {{"set", "Decoder.Connected", "no"}, Command::Set},
        {{"apply"}, Command::Apply},
        {{"check"}, Command::Check},
        {{"check", "my.conf"}, Command::Check},
        {{"select", "1"}, Command::Select},
        {{"alarm", "1"}, Command::Alarm},
        {{"lock"}, Command::Lock},
        {{"reconnect"}, Command::Reconnect},
        {{"flush"}, Command::Flush},
        {{"connect"}, Command::Connect},
        {{"disconnect"}, Command::Disconnect},
        {{"button"}, Command::Button},
        {{"snapshot", "a.png"}, Command::Snapshot},
        {{"report"}, Command::Report},
        {{"report", "a.tar.gz"}, Command::Report},
        {{"snapshot", "--size", "1280x720", "a.png"}, Command::Snapshot},
        {{"watch"}, Command::Watch},
        {{"sweep"}, Command::Sweep},
        {{"discover"}, Command::Discover},
        {{"add", "Yard", "rtsp://camera/"}, Command::Add},
    };
    for (const auto& [words, command] : all) {
        const Parsed parsed = parse(words);
        ASSERT_EQ(parsed.status(), -1) << words[0] << ": " << parsed.errors;
        EXPECT_EQ(parsed.request().command, command) << words[0];
    }
}

TEST(CommandLine, CommandLineWithoutACommandIsAUsageError) {
    EXPECT_EQ(parse({}).status(), 2);
}

TEST(CommandLine, UnknownCommandIsAUsageError) {
    const Parsed parsed = parse({"explode"});
    EXPECT_EQ(parsed.status(), 2);
    EXPECT_THAT(parsed.errors, HasSubstr("explode"));
}

TEST(CommandLine, MissingAndSurplusOperandsAreUsageErrors) {
    EXPECT_EQ(parse({"select"}).status(), 2);
    EXPECT_EQ(parse({"select", "1", "2"}).status(), 2);
    EXPECT_EQ(parse({"set", "Decoder.Connected"}).status(), 2);
    EXPECT_EQ(parse({"snapshot"}).status(), 2);
    EXPECT_EQ(parse({"lock", "now"}).status(), 2);
    EXPECT_EQ(parse({"watch", "--seconds", "-1"}).status(), 2);
    EXPECT_EQ(parse({"watch", "--seconds", "soon"}).status(), 2);
}

TEST(CommandLine, HelpIsPrintedAndSucceeds) {
    const Parsed parsed = parse({"--help"});
    EXPECT_EQ(parsed.status(), 0);
    for (const char* command : {"status", "sources", "select", "alarm", "snapshot", "watch", "button"}) {
        EXPECT_THAT(parsed.out, HasSubstr(command));
    }
    const Parsed ofOne = parse({"select", "--help"});
    EXPECT_EQ(ofOne.status(), 0);
    EXPECT_THAT(ofOne.out, HasSubstr("its number, its name, or the beginning of its name"));
}

TEST(CommandLine, JsonIsAcceptedBeforeAndAfterTheCommand) {
    EXPECT_TRUE(parse({"--json", "status"}).request().json);
    EXPECT_TRUE(parse({"status", "--json"}).request().json);
    EXPECT_FALSE(parse({"status"}).request().json);
}

TEST(CommandLine, NamesMayHaveBlanks) {
    EXPECT_EQ(parse({"select", "Front door"}).request().source, "Front door");
    EXPECT_EQ(parse({"get", "Encoder.Front door.Address"}).request().name, "Encoder.Front door.Address");
}

TEST(CommandLine, WordsOfAnAlarmAreJoined) {
    EXPECT_EQ(parse({"alarm", "1", "Somebody", "at", "the door"}).request().text, "Somebody at the door");
    EXPECT_EQ(parse({"alarm", "1"}).request().text, "");
}

TEST(CommandLine, ValuesMayBeEmptyOrADash) {
    EXPECT_EQ(parse({"set", "Network.TLS.CAFile", ""}).request().value, "");
    EXPECT_EQ(parse({"set", "Encoder.Yard.Password", "-"}).request().value, "-");
}

TEST(CommandLine, CameraIsAddedByItsUrlOrFromADiscovery) {
    const Request found = parse({"add", "--from-discovery", "3", "Yard", "--profile", "sub"}).request();
    EXPECT_EQ(found.found, 3);
    EXPECT_EQ(found.name, "Yard");
    EXPECT_EQ(found.profile, "sub");
    EXPECT_EQ(parse({"add", "--from-discovery", "3"}).request().name, "");
    EXPECT_EQ(parse({"add", "Yard", "rtsp://camera/"}).request().url, "rtsp://camera/");
    EXPECT_EQ(parse({"add"}).status(), 2);
    EXPECT_EQ(parse({"add", "Yard"}).status(), 2);
    EXPECT_EQ(parse({"add", "--from-discovery", "0"}).status(), 2);
    EXPECT_EQ(parse({"add", "Yard", "rtsp://camera/", "--from-discovery", "3"}).status(), 2);
    EXPECT_EQ(parse({"add", "Yard", "rtsp://camera/", "--profile", "sub"}).status(), 2);
}

TEST(CommandLine, OptionsOfDiscover) {
    const DiscoverRequest usual = parse({"discover"}).request().discover;
    EXPECT_DOUBLE_EQ(usual.timeout, 10);
    EXPECT_EQ(usual.address + usual.interface + usual.user, "");
    const DiscoverRequest all = parse({"discover", "10.0.0.5:8080", "--timeout", "3", "--interface", "eth0",
                                       "--user", "viewer", "--password-stdin"})
                                    .request()
                                    .discover;
    EXPECT_EQ(all.address, "10.0.0.5:8080");
    EXPECT_DOUBLE_EQ(all.timeout, 3);
    EXPECT_EQ(all.interface, "eth0");
    EXPECT_EQ(all.user, "viewer");
    EXPECT_TRUE(all.passwordStdin);
    EXPECT_EQ(parse({"discover", "--timeout", "0"}).status(), 2);
    EXPECT_EQ(parse({"discover", "--password-stdin"}).status(), 2);
}

TEST(CommandLine, OptionsOfCommands) {
    EXPECT_TRUE(parse({"button", "--hold"}).request().hold);
    EXPECT_TRUE(parse({"sources", "--names"}).request().names);
    EXPECT_TRUE(parse({"parameters", "--names"}).request().names);
    EXPECT_EQ(parse({"parameters", "--values", "Alarm.Enabled"}).request().name, "Alarm.Enabled");
    EXPECT_EQ(parse({"check", "my.conf"}).request().file, "my.conf");
    EXPECT_TRUE(parse({"set", "--force", "A.B", "c"}).request().force);
    EXPECT_DOUBLE_EQ(parse({"disconnect"}).request().wait, 15);
    EXPECT_DOUBLE_EQ(parse({"connect", "--wait", "0"}).request().wait, 0);
    EXPECT_DOUBLE_EQ(parse({"watch", "--seconds", "2.5"}).request().seconds, 2.5);
    EXPECT_EQ(parse({"--root", "/some/where", "status"}).request().root, "/some/where");
}

} // namespace
