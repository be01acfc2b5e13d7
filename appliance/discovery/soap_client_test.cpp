// Devices that send a search elsewhere, or never end.
#include "appliance/discovery/soap_client.h"

#include "tests/support/scripted_server.h"
#include "tests/support/trap.h"

#include <gmock/gmock.h>

namespace {

struct Answer {
    const char* name;
    const char* text;
    bool refused = true;
};

void PrintTo(const Answer& answer, std::ostream* out) {
    *out << answer.name;
}

class HostileDevice : public testing::TestWithParam<Answer> {
protected:
    static SoapReply ask(const scripted::Server& device) {
        SoapClient client({.user = "viewer", .password = "s3cret"},
                          std::chrono::steady_clock::now() + std::chrono::seconds(5));
        const auto service =
            readServiceUrl("http://127.0.0.1:" + std::to_string(device.port()) + "/onvif/device_service");
        return client.ask(*service, "<GetSystemDateAndTime/>");
    }
};

TEST_P(HostileDevice, SendsNobodyElsewhere) {
    const Trap trap;
    ASSERT_TRUE(trap.isSet());
    const scripted::Server device(
        {scripted::readRequest(), scripted::send(baited(GetParam().text, trap)), scripted::close()});
    const SoapReply reply = ask(device);
    EXPECT_EQ(reply.outcome != SoapOutcome::Answered, GetParam().refused);
    EXPECT_THAT(reply.reason, testing::Not(testing::HasSubstr("root:")));
    EXPECT_GE(device.requests().size(), 1U);
    EXPECT_FALSE(trap.caught());
}

INSTANTIATE_TEST_SUITE_P(
    Answers, HostileDevice,
    testing::Values(
        Answer{"Redirection", "HTTP/1.1 302 Found\r\nLocation: http://HOST:PORT/\r\n\r\n"},
        Answer{"KeptMethod", "HTTP/1.1 307 Moved\r\nLocation: http://HOST:PORT/\r\n\r\n"},
        Answer{"File", "HTTP/1.1 302 Found\r\nLocation: file:///etc/passwd\r\n\r\n"},
        Answer{"Proxy", "HTTP/1.1 305 Use Proxy\r\nLocation: http://HOST:PORT/\r\n\r\n"},
        Answer{"ExternalEntity",
               "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\n\r\n"
               "<?xml version='1.0'?><!DOCTYPE x [<!ENTITY e SYSTEM 'file:///etc/passwd'>]>"
               "<s:Envelope "
               "xmlns:s='http://www.w3.org/2003/05/soap-envelope'><s:Body><x>&e;</x></s:Body></s:Envelope>"},
        Answer{"ExternalDocumentType",
               "HTTP/1.1 200 OK\r\nContent-Type: application/soap+xml\r\n\r\n"
               "<?xml version='1.0'?><!DOCTYPE x SYSTEM 'http://HOST:PORT/x.dtd'>"
               "<s:Envelope "
               "xmlns:s='http://www.w3.org/2003/05/soap-envelope'><s:Body><x/></s:Body></s:Envelope>"},
        Answer{"Inclusion",
               "HTTP/1.1 500 Error\r\nContent-Type: application/soap+xml\r\n\r\n"
               "<s:Envelope xmlns:s='http://www.w3.org/2003/05/soap-envelope' "
               "xmlns:i='http://www.w3.org/2001/XInclude'>"
               "<s:Body><i:include href='http://HOST:PORT/x'/></s:Body></s:Envelope>",
               false}),
    [](const auto& answer) { return std::string(answer.param.name); });

TEST(EndlessDevice, EndsInTime) {
    for (const char* begun :
         {"HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n<x>"}) {
        const scripted::Server device({scripted::readRequest(), scripted::send(begun),
                                       scripted::sendEndlessly("X: more of the same\r\n")});
        SoapClient client({}, std::chrono::steady_clock::now() + std::chrono::seconds(3));
        const auto began = std::chrono::steady_clock::now();
        const SoapReply reply =
            client.ask(*readServiceUrl("http://127.0.0.1:" + std::to_string(device.port()) + "/x"), "<x/>");
        EXPECT_NE(reply.outcome, SoapOutcome::Answered);
        EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::seconds(20));
    }
}

} // namespace
