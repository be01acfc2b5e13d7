#include "appliance/encoder/onvif/operations.h"

#include "appliance/discovery/messages/device_messages.h"
#include "appliance/discovery/messages/media_messages.h"
#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

class Operations : public testing::Test {
protected:
    Operations() {
        options.inputs = {"test", "test"};
        options.kinds = {Kind::Mjpeg, Kind::RtspUnicast};
        options.codec = Codec::H264;
        options.model = "A <model>";
        facts = onvifFacts(options, 8080);
    }

    // The answer's content as a client reads it.
    XmlElement ask(const std::string& request) const {
        const XmlResult xml = readXml(request);
        const auto content = answerOperation(xml.root.value(), {facts, {"10.0.0.5", 8080}, 1700000000});
        const SoapAnswer answer = readSoapAnswer(soapEnvelope("", content.value_or("")));
        EXPECT_EQ(answer.mistake, "");
        return answer.content;
    }

    Options options;
    OnvifFacts facts;
};

TEST_F(Operations, TimeIsTold) {
    EXPECT_EQ(readTime(ask(timeRequest())), 1700000000);
}

TEST_F(Operations, DeviceIsDescribed) {
    EXPECT_EQ(readInformation(ask(informationRequest())).model, "A <model>");
}

TEST_F(Operations, BothMediaServicesAreNamed) {
    const MediaServices services = readServices(ask(servicesRequest()));
    EXPECT_EQ(services.media1, "http://10.0.0.5:8080/onvif/media_service");
    EXPECT_EQ(services.media2, "http://10.0.0.5:8080/onvif/media2_service");
    EXPECT_EQ(readCapabilities(ask(capabilitiesRequest())).media1, services.media1);
}

TEST_F(Operations, EveryInputHasItsProfilesInBothVersions) {
    for (const MediaVersion version : {MediaVersion::One, MediaVersion::Two}) {
        const std::vector<MediaProfile> profiles = readProfiles(ask(profilesRequest(version)));
        ASSERT_EQ(profiles.size(), 4U);
        EXPECT_EQ(profiles[0].token, "profile_1");
        EXPECT_EQ(profiles[0].codec, "H.264");
        EXPECT_EQ(profiles[0].width, 720);
        EXPECT_EQ(profiles[0].rate, 25);
        EXPECT_EQ(profiles[3].token, "jpeg_2");
        EXPECT_EQ(profiles[3].codec, "JPEG");
        EXPECT_EQ(profiles[3].source, "source_2");
    }
}

TEST_F(Operations, StreamsHaveAddresses) {
    for (const MediaVersion version : {MediaVersion::One, MediaVersion::Two}) {
        EXPECT_EQ(readStreamAddress(ask(streamRequest(version, "profile_2"))),
                  "rtsp://10.0.0.5:8080/mpeg4/2/media.orv");
        EXPECT_EQ(readStreamAddress(ask(streamRequest(version, "jpeg_1"))),
                  "http://10.0.0.5:8080/vexo-cgi/mjpg/video.cgi?camera=1");
    }
}

TEST_F(Operations, UnknownProfileAndOperationAreTold) {
    const auto answer = [&](const std::string& request) {
        return answerOperation(readXml(request).root.value(), {facts, {"10.0.0.5", 8080}, 0});
    };
    EXPECT_EQ(answer(streamRequest(MediaVersion::One, "none")), "");
    EXPECT_FALSE(answer("<Reboot xmlns=\"http://www.onvif.org/ver10/device/wsdl\"/>"));
    EXPECT_FALSE(answer("<GetProfiles xmlns=\"urn:other\"/>"));
}

TEST_F(Operations, FewAreOpenToEverybody) {
    EXPECT_TRUE(isOpenOperation("GetSystemDateAndTime"));
    EXPECT_TRUE(isOpenOperation("GetServices"));
    EXPECT_FALSE(isOpenOperation("GetDeviceInformation"));
    EXPECT_FALSE(isOpenOperation("GetStreamUri"));
    EXPECT_FALSE(isOpenOperation("Reboot"));
}

TEST_F(Operations, FaultIsReadAsMissingPassword) {
    EXPECT_TRUE(readSoapAnswer(soapEnvelope("", onvifFault("NotAuthorized", "no <user>"))).notAuthorized);
}

} // namespace
