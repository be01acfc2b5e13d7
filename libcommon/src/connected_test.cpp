#include <libcommon/connected.h>

#include "libcommon/src/appliance_fixture.h"

#include <gmock/gmock.h>
#include <unistd.h>

namespace {

using libcommon::connectedConfiguration;
using libcommon::ConnectedConfiguration;
using testing::HasSubstr;
using testing::Not;

class Connected : public ApplianceTest {
protected:
    static void configure(const std::string& text) { write(parameterFile(0), text); }
    static void connect() { ParamWrapper(1, true)["Decoder.Info.Connected"] = "yes"; }
    static void disconnect() { ParamWrapper(1, true)["Decoder.Info.Connected"] = "no"; }
};

TEST_F(Connected, BeforeTheFirstConnectNothingIsKnown) {
    configure("[Decoder]\nSequenceMode = auto\n");
    disconnect();
    EXPECT_FALSE(connectedConfiguration().known);
}

TEST_F(Connected, KeepsWhatTheConnectReadUntilTheNextOne) {
    configure("[Decoder]\nSequenceMode = auto\n[Encoder.Yard]\nAddress = a\nDisplayTime = 5\n");
    connect();
    configure("[Decoder]\nSequenceMode = manual\n[Encoder.Yard]\nAddress = b\n[Encoder.Gate]\nAddress = c\n");
    const ConnectedConfiguration kept = connectedConfiguration();
    ASSERT_TRUE(kept.known);
    EXPECT_EQ(kept.supervisor, getpid());
    EXPECT_EQ(kept.sequenceMode, "auto");
    EXPECT_EQ(kept.sources,
              (std::vector<SourceParams>{{{"Name", "Yard"}, {"Address", "a"}, {"DisplayTime", "5"}}}));
    EXPECT_FALSE(kept.unchanged);

    connect(); // the value is the same, the connect is another one
    EXPECT_EQ(connectedConfiguration().sequenceMode, "manual");
    EXPECT_EQ(connectedConfiguration().sources.size(), 2U);
    EXPECT_TRUE(connectedConfiguration().unchanged);
}

TEST_F(Connected, UnknownModeKeepsTheModeOfTheConnectBefore) {
    configure("[Decoder]\nSequenceMode = Manual\n");
    connect();
    EXPECT_EQ(connectedConfiguration().sequenceMode, "auto") << "a new supervisor begins with it";
    configure("[Decoder]\nSequenceMode = manual\n");
    connect();
    configure("[Decoder]\nSequenceMode = Auto\n");
    connect();
    EXPECT_EQ(connectedConfiguration().sequenceMode, "manual");
    EXPECT_EQ(inChild([] {
                  connect();
                  return connectedConfiguration().sequenceMode == "auto" ? 0 : 1;
              }),
              0)
        << "another process starts over";
}

TEST_F(Connected, UserNamesAndPasswordsAreNotKept) {
    configure("[Encoder.Yard]\nUserName = root\n\tpassword=s3cret\nPassword s3cret\nAddress = a");
    connect();
    const std::string copy = read(file("/run/decoder/connected.conf"));
    EXPECT_THAT(copy, Not(HasSubstr("s3cret")));
    EXPECT_THAT(copy, Not(HasSubstr("root")));
    EXPECT_EQ(connectedConfiguration().sources,
              (std::vector<SourceParams>{{{"Name", "Yard"}, {"Address", "a"}}}));
}

TEST_F(Connected, NoConfigurationIsAnEmptyOne) {
    connect();
    ASSERT_TRUE(connectedConfiguration().known);
    EXPECT_TRUE(connectedConfiguration().sources.empty());
    EXPECT_TRUE(connectedConfiguration().unchanged);
}

TEST_F(Connected, GarbageInTheFileIsNotAConfiguration) {
    write(file("/run/decoder/connected.conf"), "garbage\n[Decoder]\nSequenceMode = auto\n");
    EXPECT_FALSE(connectedConfiguration().known);
}

} // namespace
