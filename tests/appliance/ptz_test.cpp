// Camera presets: the requests that the encoder gets, in each connect mode.
#include "tests/appliance/appliance.h"
#include "tests/appliance/isolation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using appliance::Appliance;
using appliance::Encoder;
using testing::ElementsAre;

using Turns = std::vector<std::string>;

const std::vector<std::string> guarded{"--user", "operator", "--password", "s3cret"};
const appliance::Keys credentials{{"UserName", "operator"}, {"Password", "s3cret"}};

// The preset requests that an encoder got, such as "gate: http 401" or "gate: https operator 200".
Turns turns(const Encoder& encoder) {
    const std::string path = "/vexo-cgi/com/ptz.cgi?gotoserverpresetname=";
    Turns all;
    for (const Encoder::Request& request : encoder.requests()) {
        if (request.target.find("ptz.cgi") == std::string::npos) {
            continue;
        }
        const bool known = request.target.compare(0, path.size(), path) == 0;
        all.push_back(request.target.substr(known ? path.size() : 0) + ": " + request.protocol + ' ' +
                      (request.user.empty() ? "" : request.user + ' ') + std::to_string(request.status));
    }
    return all;
}

// Two presets of one camera are two sources with the same encoder input: a switch between them only turns the
// camera.
class Ptz : public testing::Test {
protected:
    void addCamera(const std::vector<std::string>& arguments, const appliance::Keys& more = {}) {
        addDrive(decoder.addEncoder("Gate", arguments, with(more, "gate")), more);
    }

    void addCameraHost(const std::vector<std::string>& arguments, const appliance::Keys& more) {
        addDrive(decoder.addHost("Gate", arguments, with(more, "gate")), more);
    }

    void start() {
        decoder.setManual();
        decoder.start();
        ASSERT_TRUE(decoder.showsMoving(0));
        ASSERT_TRUE(decoder.waitForState("MANUAL_WAIT_FOR_NEW_SELECTION"));
    }

    // Selects a preset and returns the requests that this causes.
    Turns turnTo(int source) {
        const std::size_t before = turns(camera()).size();
        const std::size_t times = decoder.countInLog("SEND_ONLY_PTZ(8) -> ") + 1;
        decoder.ctl({"select", std::to_string(source)});
        EXPECT_TRUE(decoder.waitForLog("SEND_ONLY_PTZ(8) -> ", times));
        Turns all = turns(camera());
        all.erase(all.begin(), all.begin() + static_cast<long>(before));
        return all;
    }

    const Encoder& camera() { return decoder.encoder(0); }

    Appliance decoder;

private:
    static appliance::Keys with(appliance::Keys keys, const std::string& preset) {
        keys["PTZ"] = preset;
        return keys;
    }

    void addDrive(const Encoder& encoder, const appliance::Keys& more) {
        appliance::Keys keys = with(more, "drive");
        keys["Address"] = encoder.address();
        decoder.addSource("Drive", keys);
    }
};

TEST_F(Ptz, SendsNoRequestWithoutAPreset) {
    Encoder& encoder = decoder.addEncoder("Fixed");
    decoder.addSource("Fixed as well", {{"Address", encoder.address()}, {"PTZ", ""}});
    start();
    EXPECT_EQ(turnTo(1), Turns{});
    EXPECT_EQ(turns(encoder), Turns{});
}

TEST_F(Ptz, SendsThePresetNameUnchanged) {
    const std::string name = "Gate & <north>?x=1%20 #2; \"\xc3\xbc\"";
    decoder.addEncoder("Gate", {}, {{"PTZ", name}});
    start();
    EXPECT_THAT(turns(camera()), ElementsAre(name + ": http 200"));
}

TEST_F(Ptz, SendsARequestAtEachLaunchAndEachSelection) {
    addCamera({});
    start();
    EXPECT_THAT(turns(camera()), ElementsAre("gate: http 200"));
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 200"));
    EXPECT_THAT(turnTo(0), ElementsAre("gate: http 200"));
    EXPECT_THAT(turnTo(0), ElementsAre("gate: http 200")) << "the camera may have been turned by hand";
}

// The supervisor first uses the known connect mode, then all modes. Without a known mode it tries all of them at
// once. libcommon sends credentials only after the encoder asks for them.
TEST_F(Ptz, RefusalLeadsToOneMoreTryThatFindsTheModeAgain) {
    addCamera(guarded, credentials);
    start();
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http-auth");
    EXPECT_THAT(turns(camera()), ElementsAre("gate: http 401", "gate: http operator 200"));
    camera().setFaults("401");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 401", "drive: http operator 401", "drive: http 401",
                                       "drive: http operator 401"));
    EXPECT_THAT(turnTo(0), ElementsAre("gate: http 401", "gate: http operator 401"))
        << "the connect mode was forgotten";
    camera().setFaults("");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 401", "drive: http operator 200"));
    camera().setFaults("401");
    EXPECT_EQ(turnTo(0).size(), 4U) << "the connect mode is known again";
}

TEST_F(Ptz, RefusalWithoutCredentialsIsTriedOnceMore) {
    addCamera({});
    start();
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http");
    camera().setFaults("404");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 404", "drive: http 404"));
    EXPECT_THAT(turnTo(0), ElementsAre("gate: http 404"));
    camera().setFaults("");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 200"));
    camera().setFaults("404");
    EXPECT_THAT(turnTo(0), ElementsAre("gate: http 404", "gate: http 404"));
}

TEST_F(Ptz, IsSentOverHttps) {
    addCamera({"--https", "0"});
    decoder.set("Network.TLS.Verify", "no");
    start();
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "https");
    EXPECT_THAT(turns(camera()), ElementsAre("gate: https 200"));
    camera().setFaults("404");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: https 404", "drive: https 404"));
    EXPECT_THAT(turnTo(0), ElementsAre("gate: https 404"));
    camera().setFaults("");
    EXPECT_THAT(turnTo(1), ElementsAre("drive: https 200"));
    camera().setFaults("404");
    EXPECT_THAT(turnTo(0), ElementsAre("gate: https 404", "gate: https 404"));
}

const std::vector<std::string> smallAndGuarded{"--width", "352",    "--height", "288",        "--fps",
                                               "12",      "--user", "operator", "--password", "s3cret"};

std::vector<std::string> ofKind(const char* kind) {
    std::vector<std::string> all{"--kinds", kind};
    all.insert(all.end(), smallAndGuarded.begin(), smallAndGuarded.end());
    return all;
}

// A multicast plays without a known connect mode; the first preset request finds it.
TEST_F(Ptz, FirstPresetOfAMulticastSourceFindsItsConnectMode) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "needs a network namespace of its own for multicast";
    }
    addCamera(ofKind("sdp"), credentials);
    start();
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "auto");
    EXPECT_THAT(turns(camera()), ElementsAre("gate: http 401", "gate: http operator 200"));
    camera().setFaults("401");
    EXPECT_EQ(turnTo(1).size(), 4U) << "the known mode, then all modes";
    EXPECT_EQ(turnTo(0).size(), 2U);
}

TEST_F(Ptz, RtspSourceIsTurnedOverHttp) {
    if (!appliance::isolate()) {
        GTEST_SKIP() << "needs a network namespace of its own for hosts";
    }
    addCameraHost(ofKind("rtsp-tcp"), credentials);
    start();
    EXPECT_EQ(decoder.sourceValue(0, "ConnectMode"), "http-auth");
    EXPECT_THAT(turns(camera()), ElementsAre("gate: http 401", "gate: http operator 200"));
    EXPECT_THAT(turnTo(1), ElementsAre("drive: http 401", "drive: http operator 200"));
}

} // namespace
