#include "appliance/discovery/messages/media_messages.h"

#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

XmlElement read(const std::string& text) {
    const XmlResult xml = readXml(text);
    EXPECT_TRUE(xml.root) << text;
    return xml.root.value_or(XmlElement{});
}

const std::string firstVersion =
    R"(<trt:GetProfilesResponse xmlns:trt="http://www.onvif.org/ver10/media/wsdl" xmlns:tt="http://www.onvif.org/ver10/schema">
<trt:Profiles token="P1" fixed="true"><tt:Name>mainStream</tt:Name>
 <tt:VideoSourceConfiguration token="V"><tt:Name>v</tt:Name><tt:SourceToken>VS_1</tt:SourceToken>
  <tt:Bounds x="0" y="0" width="2560" height="1440"/></tt:VideoSourceConfiguration>
 <tt:AudioEncoderConfiguration token="A"><tt:Encoding>G711</tt:Encoding></tt:AudioEncoderConfiguration>
 <tt:VideoEncoderConfiguration token="E1"><tt:Name>e</tt:Name><tt:Encoding>H264</tt:Encoding>
  <tt:Resolution><tt:Width>2560</tt:Width><tt:Height>1440</tt:Height></tt:Resolution><tt:Quality>3</tt:Quality>
  <tt:RateControl><tt:FrameRateLimit>25</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval>
  <tt:BitrateLimit>4096</tt:BitrateLimit></tt:RateControl></tt:VideoEncoderConfiguration></trt:Profiles>
<trt:Profiles token="P2"><tt:Name>sub</tt:Name>
 <tt:VideoEncoderConfiguration><tt:Encoding>JPEG</tt:Encoding><tt:Resolution><tt:Width>640</tt:Width>
  <tt:Height>-5</tt:Height></tt:Resolution></tt:VideoEncoderConfiguration></trt:Profiles>
<trt:Profiles token="P3"><tt:Name>sound only</tt:Name></trt:Profiles>
<trt:Profiles><tt:Name>no token</tt:Name><tt:VideoEncoderConfiguration/></trt:Profiles>
</trt:GetProfilesResponse>)";

const std::string secondVersion =
    R"(<GetProfilesResponse xmlns="http://www.onvif.org/ver20/media/wsdl" xmlns:ns1="http://www.onvif.org/ver10/schema">
<Profiles token="a" fixed="false"><Name>One</Name><Configurations>
 <VideoSource token="v"><ns1:SourceToken>s</ns1:SourceToken></VideoSource>
 <AudioEncoder token="x"><ns1:Encoding>mp4a-latm</ns1:Encoding></AudioEncoder>
 <VideoEncoder token="e" GovLength="50"><ns1:Encoding>H265</ns1:Encoding>
  <ns1:Resolution><ns1:Width>3840</ns1:Width><ns1:Height>2160</ns1:Height></ns1:Resolution>
  <ns1:RateControl ConstantBitRate="false"><ns1:FrameRateLimit>12.5</ns1:FrameRateLimit>
  <ns1:BitrateLimit>8192</ns1:BitrateLimit></ns1:RateControl></VideoEncoder></Configurations></Profiles>
</GetProfilesResponse>)";

TEST(MediaMessages, ProfilesOfTheFirstVersionAreRead) {
    const std::vector<MediaProfile> profiles = readProfiles(read(firstVersion));
    ASSERT_EQ(profiles.size(), 2U);
    EXPECT_EQ(profiles[0].token, "P1");
    EXPECT_EQ(profiles[0].name, "mainStream");
    EXPECT_EQ(profiles[0].source, "VS_1");
    EXPECT_EQ(profiles[0].codec, "H.264");
    EXPECT_EQ(profiles[0].width, 2560);
    EXPECT_EQ(profiles[0].height, 1440);
    EXPECT_EQ(profiles[0].rate, 25);
    EXPECT_EQ(profiles[0].bitrate, 4096);
    EXPECT_EQ(profiles[0].sound, "G711");
    EXPECT_EQ(profiles[1].codec, "JPEG");
    EXPECT_EQ(profiles[1].width, 640);
    EXPECT_EQ(profiles[1].height, 0) << "a negative number counts as not told";
    EXPECT_EQ(profiles[1].rate, 0);
}

TEST(MediaMessages, ProfilesOfTheSecondVersionAreRead) {
    const std::vector<MediaProfile> profiles = readProfiles(read(secondVersion));
    ASSERT_EQ(profiles.size(), 1U);
    EXPECT_EQ(profiles[0].source, "s");
    EXPECT_EQ(profiles[0].codec, "H.265");
    EXPECT_EQ(profiles[0].width, 3840);
    EXPECT_EQ(profiles[0].rate, 12.5);
    EXPECT_EQ(profiles[0].sound, "mp4a-latm");
}

TEST(MediaMessages, NumberOfProfilesHasALimit) {
    std::string text = "<r>";
    for (int i = 0; i < 500; ++i) {
        text += "<Profiles token=\"t\"><VideoEncoderConfiguration/></Profiles>";
    }
    EXPECT_EQ(readProfiles(read(text + "</r>")).size(), maxProfiles);
}

TEST(MediaMessages, StreamAddressIsReadInBothVersions) {
    EXPECT_EQ(readStreamAddress(read("<r><MediaUri><Uri>rtsp://10.0.0.5/1?a=1&amp;b=2</Uri>"
                                     "<Timeout>PT0S</Timeout></MediaUri></r>")),
              "rtsp://10.0.0.5/1?a=1&b=2");
    EXPECT_EQ(readStreamAddress(read("<r><Uri>rtsp://10.0.0.5/2</Uri></r>")), "rtsp://10.0.0.5/2");
    EXPECT_EQ(readStreamAddress(read("<r/>")), "");
}

TEST(MediaMessages, RequestsEscapeTheToken) {
    for (const MediaVersion version : {MediaVersion::One, MediaVersion::Two}) {
        const XmlElement request = read(streamRequest(version, "a<b>\"&"));
        EXPECT_EQ(request.textAt("ProfileToken"), "a<b>\"&");
        EXPECT_EQ(read(profilesRequest(version)).name, "GetProfiles");
    }
    EXPECT_EQ(read(streamRequest(MediaVersion::One, "t")).textAt("StreamSetup/Transport/Protocol"), "RTSP");
    EXPECT_EQ(read(streamRequest(MediaVersion::Two, "t")).textAt("Protocol"), "RTSP");
}

} // namespace
