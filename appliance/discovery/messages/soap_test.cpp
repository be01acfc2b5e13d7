#include "appliance/discovery/messages/soap.h"

#include <gtest/gtest.h>

namespace {

TEST(Soap, BothVersionsAreRead) {
    for (const char* version : {soap::envelope12, soap::envelope11}) {
        const SoapAnswer answer =
            readSoapAnswer("<SOAP-ENV:Envelope xmlns:SOAP-ENV=\"" + std::string(version) +
                           "\"><SOAP-ENV:Header/><SOAP-ENV:Body><n:Hello xmlns:n=\"urn:n\">"
                           "<n:To>you</n:To></n:Hello></SOAP-ENV:Body></SOAP-ENV:Envelope>");
        EXPECT_EQ(answer.mistake, "");
        EXPECT_FALSE(answer.isFault);
        EXPECT_EQ(answer.content.name, "Hello");
        EXPECT_EQ(answer.content.textAt("To"), "you");
    }
}

TEST(Soap, EnvelopeReadsBack) {
    const SoapAnswer answer = readSoapAnswer(soapEnvelope("<h/>", "<b>1</b>"));
    EXPECT_EQ(answer.mistake, "");
    EXPECT_EQ(answer.content.text, "1");
}

TEST(Soap, OtherXmlIsRefused) {
    EXPECT_EQ(readSoapAnswer("<html><body/></html>").mistake, "it is XML, but not SOAP");
    EXPECT_EQ(readSoapAnswer("<Envelope><Body/></Envelope>").mistake, "it is XML, but not SOAP");
    EXPECT_EQ(readSoapAnswer("404 page not found").mistake, "it is not XML");
}

TEST(Soap, EmptyBodyHasNoContent) {
    const SoapAnswer answer = readSoapAnswer(soapEnvelope("", ""));
    EXPECT_EQ(answer.mistake, "");
    EXPECT_EQ(answer.content.name, "");
}

TEST(Soap, FaultOfVersion12SaysThatThePasswordIsMissing) {
    const SoapAnswer answer = readSoapAnswer(soapEnvelope(
        "", "<s:Fault><s:Code><s:Value>s:Sender</s:Value><s:Subcode>"
            "<s:Value "
            "xmlns:ter=\"http://www.onvif.org/ver10/error\">ter:NotAuthorized</s:Value></s:Subcode></s:Code>"
            "<s:Reason><s:Text xml:lang=\"en\">Sender not Authorized</s:Text></s:Reason></s:Fault>"));
    EXPECT_TRUE(answer.isFault);
    EXPECT_TRUE(answer.notAuthorized);
    EXPECT_EQ(answer.reason, "Sender not Authorized");
}

TEST(Soap, FaultOfVersion11IsRead) {
    const SoapAnswer answer = readSoapAnswer(
        "<e:Envelope xmlns:e=\"http://schemas.xmlsoap.org/soap/envelope/\"><e:Body><e:Fault>"
        "<faultcode>wsse:FailedAuthentication</faultcode><faultstring>no</faultstring></e:Fault>"
        "</e:Body></e:Envelope>");
    EXPECT_TRUE(answer.notAuthorized);
    EXPECT_EQ(answer.reason, "no");
}

TEST(Soap, OtherFaultIsNotAboutThePassword) {
    const SoapAnswer answer = readSoapAnswer(soapEnvelope(
        "",
        "<s:Fault><s:Code><s:Value>s:Receiver</s:Value><s:Subcode><s:Value>ter:ActionNotSupported</s:Value>"
        "</s:Subcode></s:Code><s:Reason><s:Text>NotAuthorized</s:Text></s:Reason></s:Fault>"));
    EXPECT_TRUE(answer.isFault);
    EXPECT_FALSE(answer.notAuthorized);
}

TEST(Soap, PrefixIsRemoved) {
    EXPECT_EQ(withoutPrefix("tds:Device"), "Device");
    EXPECT_EQ(withoutPrefix("Device"), "Device");
    EXPECT_EQ(withoutPrefix("tds:"), "");
}

} // namespace
