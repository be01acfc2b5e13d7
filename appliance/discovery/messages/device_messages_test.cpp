#include "appliance/discovery/messages/device_messages.h"

#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

XmlElement contentOf(const std::string& body) {
    const SoapAnswer answer = readSoapAnswer(
        "<?xml version=\"1.0\"?><env:Envelope xmlns:env=\"http://www.w3.org/2003/05/soap-envelope\" "
        "xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" "
        "xmlns:tt=\"http://www.onvif.org/ver10/schema\"><env:Body>" +
        body + "</env:Body></env:Envelope>");
    EXPECT_EQ(answer.mistake, "");
    return answer.content;
}

std::string timeAnswer(const std::string& day, const std::string& hour) {
    return "<tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime><tt:DateTimeType>NTP</tt:DateTimeType>"
           "<tt:DaylightSavings>false</tt:DaylightSavings><tt:TimeZone><tt:TZ>UTC0</tt:TZ></tt:TimeZone>"
           "<tt:UTCDateTime><tt:Time><tt:Hour>" +
           hour +
           "</tt:Hour><tt:Minute>13</tt:Minute><tt:Second>20</tt:Second></tt:Time><tt:Date><tt:Year>2023</"
           "tt:Year>"
           "<tt:Month>11</tt:Month><tt:Day>" +
           day +
           "</tt:Day></tt:Date></tt:UTCDateTime><tt:LocalDateTime/></tds:SystemDateAndTime>"
           "</tds:GetSystemDateAndTimeResponse>";
}

TEST(DeviceMessages, RequestsAreXmlOfTheDeviceService) {
    for (const std::string& request :
         {timeRequest(), informationRequest(), servicesRequest(), capabilitiesRequest()}) {
        const XmlResult xml = readXml(request);
        ASSERT_TRUE(xml.root) << request;
        EXPECT_EQ(xml.root->nameSpace, soap::device);
    }
}

TEST(DeviceMessages, TimeIsRead) {
    EXPECT_EQ(readTime(contentOf(timeAnswer("14", "22"))), 1700000000);
}

TEST(DeviceMessages, TimeThatDoesNotExistIsNotRead) {
    EXPECT_FALSE(readTime(contentOf(timeAnswer("32", "22"))));
    EXPECT_FALSE(readTime(contentOf(timeAnswer("14", "-1"))));
    EXPECT_FALSE(readTime(contentOf(timeAnswer("14", "99999999999999"))));
    EXPECT_FALSE(readTime(contentOf(timeAnswer("", "22"))));
    EXPECT_FALSE(readTime(contentOf("<tds:GetSystemDateAndTimeResponse/>")));
}

TEST(DeviceMessages, InformationIsRead) {
    const DeviceInformation known = readInformation(
        contentOf("<tds:GetDeviceInformationResponse><tds:Manufacturer>Lantern &amp; Co</tds:Manufacturer>"
                  "<tds:Model>L-1</tds:Model><tds:FirmwareVersion>1.2.3</"
                  "tds:FirmwareVersion><tds:SerialNumber>77</tds:SerialNumber>"
                  "<tds:HardwareId>A</tds:HardwareId></tds:GetDeviceInformationResponse>"));
    EXPECT_EQ(known.manufacturer, "Lantern & Co");
    EXPECT_EQ(known.model, "L-1");
    EXPECT_EQ(known.firmware, "1.2.3");
    EXPECT_EQ(known.serial, "77");
    EXPECT_EQ(known.hardware, "A");
}

TEST(DeviceMessages, MediaServicesAreRead) {
    const MediaServices services = readServices(contentOf(
        "<tds:GetServicesResponse><tds:Service><tds:Namespace>http://www.onvif.org/ver10/device/wsdl</"
        "tds:Namespace>"
        "<tds:XAddr>http://10.0.0.5/onvif/device</tds:XAddr></tds:Service><tds:Service>"
        "<tds:Namespace>http://www.onvif.org/ver20/media/wsdl</tds:Namespace><tds:XAddr>http://10.0.0.5/m2</"
        "tds:XAddr>"
        "</tds:Service><tds:Service><tds:Namespace>http://www.onvif.org/ver10/media/wsdl</tds:Namespace>"
        "<tds:XAddr>http://10.0.0.5/m1</tds:XAddr></tds:Service></tds:GetServicesResponse>"));
    EXPECT_EQ(services.media1, "http://10.0.0.5/m1");
    EXPECT_EQ(services.media2, "http://10.0.0.5/m2");
}

TEST(DeviceMessages, CapabilitiesNameTheMediaService) {
    const MediaServices services =
        readCapabilities(contentOf("<tds:GetCapabilitiesResponse><tds:Capabilities><tt:Device><tt:XAddr>http:"
                                   "//10.0.0.5/d</tt:XAddr></tt:Device>"
                                   "<tt:Media><tt:XAddr>http://10.0.0.5/m</tt:XAddr></tt:Media></"
                                   "tds:Capabilities></tds:GetCapabilitiesResponse>"));
    EXPECT_EQ(services.media1, "http://10.0.0.5/m");
    EXPECT_EQ(services.media2, "");
}

} // namespace
