#include "appliance/discovery/messages/probe.h"

#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string> ids{"urn:uuid:1111", "urn:uuid:2222"};

// As many devices write it: one prefix for each name space, SOAP 1.2.
const std::string longForm =
    R"(<?xml version="1.0" encoding="UTF-8"?>
<SOAP-ENV:Envelope xmlns:SOAP-ENV="http://www.w3.org/2003/05/soap-envelope"
  xmlns:wsa="http://schemas.xmlsoap.org/ws/2004/08/addressing"
  xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery"
  xmlns:dn="http://www.onvif.org/ver10/network/wsdl" xmlns:tds="http://www.onvif.org/ver10/device/wsdl">
 <SOAP-ENV:Header>
  <wsa:MessageID>urn:uuid:9999</wsa:MessageID>
  <wsa:RelatesTo>urn:uuid:2222</wsa:RelatesTo>
  <wsa:To SOAP-ENV:mustUnderstand="true">http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous</wsa:To>
  <wsa:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/ProbeMatches</wsa:Action>
  <d:AppSequence InstanceId="0" MessageNumber="5"/>
 </SOAP-ENV:Header>
 <SOAP-ENV:Body><d:ProbeMatches><d:ProbeMatch>
  <wsa:EndpointReference><wsa:Address>urn:uuid:abcd</wsa:Address></wsa:EndpointReference>
  <d:Types>dn:NetworkVideoTransmitter
     tds:Device</d:Types>
  <d:Scopes>onvif://www.onvif.org/type/video_encoder onvif://www.onvif.org/name/Loading%20Dock
     onvif://www.onvif.org/location/</d:Scopes>
  <d:XAddrs>http://192.168.1.20/onvif/device_service http://[fe80::1]/onvif/device_service</d:XAddrs>
  <d:MetadataVersion>1</d:MetadataVersion>
 </d:ProbeMatch></d:ProbeMatches></SOAP-ENV:Body></SOAP-ENV:Envelope>)";

// Default name spaces, SOAP 1.1, two devices behind one address, one of them no camera.
const std::string shortForm =
    R"(<Envelope xmlns="http://schemas.xmlsoap.org/soap/envelope/"><Header>
<RelatesTo xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing">urn:uuid:1111</RelatesTo></Header><Body>
<ProbeMatches xmlns="http://schemas.xmlsoap.org/ws/2005/04/discovery">
<ProbeMatch><EndpointReference xmlns="http://schemas.xmlsoap.org/ws/2004/08/addressing"><Address>urn:a</Address>
</EndpointReference><Types>NetworkVideoTransmitter</Types><XAddrs>http://10.0.0.5:8080/dev</XAddrs></ProbeMatch>
<ProbeMatch><Types>wsdp:PrintDeviceType</Types><XAddrs>http://10.0.0.6/print</XAddrs></ProbeMatch>
</ProbeMatches></Body></Envelope>)";

std::string replaced(std::string text, const std::string& what, const std::string& by) {
    text.replace(text.find(what), what.size(), by);
    return text;
}

TEST(Probe, NamesWhatIsWanted) {
    const XmlResult first = readXml(probeMessage("urn:uuid:1", Wanted::VideoTransmitter));
    ASSERT_TRUE(first.root);
    EXPECT_EQ(first.root->textAt("Header/MessageID"), "urn:uuid:1");
    EXPECT_EQ(first.root->textAt("Body/Probe/Types"), "p:NetworkVideoTransmitter");
    EXPECT_EQ(first.root->at("Body/Probe")->nameSpace, soap::discovery);
    const XmlResult second = readXml(probeMessage("urn:uuid:1", Wanted::Device));
    ASSERT_TRUE(second.root);
    EXPECT_EQ(second.root->textAt("Body/Probe/Types"), "p:Device");
}

TEST(ProbeMatches, LongFormIsRead) {
    const std::vector<ProbeMatch> matches = readProbeMatches(longForm, ids);
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].endpoint, "urn:uuid:abcd");
    EXPECT_EQ(matches[0].types, (std::vector<std::string>{"NetworkVideoTransmitter", "Device"}));
    EXPECT_EQ(matches[0].scopes.size(), 3U);
    EXPECT_EQ(matches[0].addresses, (std::vector<std::string>{"http://192.168.1.20/onvif/device_service",
                                                              "http://[fe80::1]/onvif/device_service"}));
    EXPECT_EQ(scopeValue(matches[0].scopes, "name"), "Loading Dock");
    EXPECT_EQ(scopeValue(matches[0].scopes, "location"), "");
    EXPECT_EQ(scopeValue(matches[0].scopes, "hardware"), "");
}

TEST(ProbeMatches, ShortFormIsReadAndThePrinterIsNot) {
    const std::vector<ProbeMatch> matches = readProbeMatches(shortForm, ids);
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].endpoint, "urn:a");
    EXPECT_EQ(matches[0].addresses, std::vector<std::string>{"http://10.0.0.5:8080/dev"});
}

TEST(ProbeMatches, AnswerToSomeoneElseIsNotTaken) {
    EXPECT_TRUE(readProbeMatches(longForm, {"urn:uuid:3333"}).empty());
    EXPECT_TRUE(readProbeMatches(replaced(longForm, "RelatesTo>urn:uuid:2222</wsa:RelatesTo",
                                          "Related>urn:uuid:2222</wsa:Related"),
                                 ids)
                    .empty());
}

TEST(ProbeMatches, DeviceWithoutAddressIsNotTaken) {
    EXPECT_TRUE(readProbeMatches(replaced(shortForm, "http://10.0.0.5:8080/dev", " "), ids).empty());
}

TEST(ProbeMatches, OurOwnProbeIsNoAnswer) {
    EXPECT_TRUE(readProbeMatches(probeMessage("urn:uuid:1111", Wanted::Device), ids).empty());
    EXPECT_TRUE(readProbeMatches("", ids).empty());
    EXPECT_TRUE(readProbeMatches("\x01\x02 urn:uuid:1111", ids).empty());
}

TEST(ProbeMatches, NumberOfDevicesAndWordsHasALimit) {
    std::string matches;
    std::string words;
    for (int i = 0; i < 200; ++i) {
        words += " http://10.0.0.5/" + std::to_string(i);
    }
    for (int i = 0; i < 200; ++i) {
        matches += "<ProbeMatch><Types>Device</Types><XAddrs>" + words + "</XAddrs></ProbeMatch>";
    }
    const std::string text =
        "<Envelope><Header><RelatesTo>urn:uuid:1111</RelatesTo></Header><Body><ProbeMatches>" + matches +
        "</ProbeMatches></Body></Envelope>";
    const std::vector<ProbeMatch> found = readProbeMatches(text, ids);
    ASSERT_EQ(found.size(), 64U);
    EXPECT_EQ(found[0].addresses.size(), maxListWords);
}

TEST(ScopeValue, BadPercentSignsStay) {
    EXPECT_EQ(scopeValue({"onvif://www.onvif.org/name/a%2fb%zz%4"}, "name"), "a/b%zz%4");
}

} // namespace
