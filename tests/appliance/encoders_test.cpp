// Encoders with credentials, with TLS, with old parameter CGIs, with several inputs.
#include "tests/appliance/appliance.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using appliance::Appliance;

const std::vector<std::string> guarded{"--user", "operator", "--password", "s3cret word"};
const appliance::Keys credentials{{"UserName", "operator"}, {"Password", "s3cret word"}};

std::vector<std::string> with(std::vector<std::string> arguments, const std::vector<std::string>& more) {
    arguments.insert(arguments.end(), more.begin(), more.end());
    return arguments;
}

TEST(Encoders, BasicCredentialsAreSent) {
    Appliance decoder;
    decoder.addEncoder("Vault", guarded, credentials);
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http-auth");
}

TEST(Encoders, DigestCredentialsAreSent) {
    Appliance decoder;
    decoder.addEncoder("Vault", with(guarded, {"--digest"}), credentials);
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http-auth");
}

TEST(Encoders, WrongCredentialsGiveErrorTwentyFour) {
    Appliance decoder;
    decoder.addEncoder("Vault", guarded, {{"UserName", "operator"}, {"Password", "guess"}});
    decoder.setManual();
    decoder.start();
    EXPECT_TRUE(
        decoder.waitForText(0, "No connection to encoder Vault(" + decoder.encoder(0).address() + ")"));
    EXPECT_EQ(decoder.sourceValue(0, "ErrorCode"), "24");
    EXPECT_EQ(decoder.status()["leds"][0]["text"], "red, steady");
}

TEST(Encoders, PasswordsAreNeverLogged) {
    Appliance decoder;
    decoder.addEncoder("Vault", guarded, credentials);
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.log().find("s3cret"), std::string::npos);
    EXPECT_EQ(decoder.ctl({"source", "0"}).output.find("s3cret"), std::string::npos);
}

TEST(Encoders, HttpsIsDetectedAndPlayed) {
    Appliance decoder;
    decoder.addEncoder("Bank", {"--https", "0"});
    decoder.set("Network.TLS.Verify", "no");
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "https");
}

TEST(Encoders, RtspOverHttps) {
    Appliance decoder;
    decoder.addEncoder("Bank", {"--https", "0", "--kinds", "rtsp-http", "--width", "352", "--height", "288"});
    decoder.set("Network.TLS.Verify", "no");
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0)) << decoder.ctl({"explain", "0"}).output;
    EXPECT_EQ(decoder.sourceValue(0, "VideoSourceType"), "rtsp-http");
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "https");
}

TEST(Encoders, UnknownCertificateIsRefusedAndLogged) {
    Appliance decoder;
    decoder.addEncoder("Bank", {"--https", "0"});
    decoder.setManual();
    decoder.start();
    EXPECT_TRUE(decoder.waitForText(0, "No connection to encoder Bank"));
    EXPECT_TRUE(decoder.waitForLog("certificate"));
    EXPECT_TRUE(decoder.players().empty());
}

TEST(Encoders, OldEncoderWithoutTheViewerCgiIsPlayed) {
    Appliance decoder;
    decoder.addEncoder("Old", {"--api-version", "1"});
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "APIVersion"), "1");
}

TEST(Encoders, ErrorReplyOfTheViewerCgiLeadsToTheAdministratorCgi) {
    Appliance decoder;
    decoder.addEncoder("Odd", {"--fault", "hash", "--model", "Odd Model 7"});
    decoder.start();
    EXPECT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "Model"), "Odd Model 7");
}

TEST(Encoders, InputsOfOneEncoderAreSeparateSources) {
    Appliance decoder;
    appliance::Encoder& encoder =
        decoder.addEncoder("First", {"--inputs", "4"}, {{"VideoSourceNumber", "1"}});
    decoder.addSource("Third", {{"Address", encoder.address()}, {"VideoSourceNumber", "3"}});
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    EXPECT_EQ(decoder.sourceValue(0, "NumberOfVideoSources"), "4");
    decoder.ctl({"select", "Third"});
    EXPECT_TRUE(decoder.waitForSource(1));
    EXPECT_TRUE(decoder.showsMoving(2)) << "the mark is the third input's";
}

TEST(Encoders, SourcesWithEqualKeysShareOneDetection) {
    Appliance decoder;
    appliance::Encoder& encoder = decoder.addEncoder("First");
    decoder.addSource("Second", {{"Address", encoder.address()}});
    decoder.addEncoder("Other");
    decoder.setManual();
    decoder.start();
    ASSERT_TRUE(decoder.showsMoving(0));
    decoder.ctl({"select", "2"});
    ASSERT_TRUE(decoder.showsMoving(2));
    const std::string output = appliance::readFile(decoder.root() + "/var/log/output");
    decoder.ctl({"select", "1"});
    ASSERT_TRUE(decoder.showsMoving(0)) << "the same encoder";
    EXPECT_TRUE(decoder.waitForSource(1));
    EXPECT_EQ(decoder.sourceValue(1, "Model"), decoder.sourceValue(0, "Model"));
    EXPECT_EQ(appliance::readFile(decoder.root() + "/var/log/output").find("Assuming API", output.size()),
              std::string::npos)
        << "there was no second detection";
}

} // namespace
