#include "appliance/encoder/onvif/probe_answer.h"

#include "appliance/discovery/messages/probe.h"

#include <gtest/gtest.h>

namespace {

OnvifFacts facts() {
    Options options;
    options.name = "Loading dock";
    return onvifFacts(options, 8080);
}

std::string withScope(const std::string& scope) {
    std::string text = probeMessage("urn:uuid:1", Wanted::Device);
    const std::string end = "</d:Probe>";
    return text.insert(text.find(end), "<d:Scopes>" + scope + "</d:Scopes>");
}

TEST(ProbeAnswer, SearchForDevicesOrTransmittersIsForUs) {
    EXPECT_EQ(probeForUs(probeMessage("urn:uuid:1", Wanted::Device), facts()), "urn:uuid:1");
    EXPECT_EQ(probeForUs(probeMessage("urn:uuid:2", Wanted::VideoTransmitter), facts()), "urn:uuid:2");
}

TEST(ProbeAnswer, SearchForOtherThingsIsNot) {
    std::string printers = probeMessage("urn:uuid:1", Wanted::Device);
    printers.replace(printers.find("p:Device<"), 8, "p:Printer");
    EXPECT_FALSE(probeForUs(printers, facts()));
    EXPECT_FALSE(probeForUs("garbage", facts()));
    EXPECT_FALSE(probeForUs(probeMessage("", Wanted::Device), facts()));
    EXPECT_FALSE(probeForUs(probeAnswer("urn:uuid:1", facts(), "http://10.0.0.5/"), facts()));
}

TEST(ProbeAnswer, ScopesHaveToFit) {
    EXPECT_TRUE(probeForUs(withScope("onvif://www.onvif.org/name/Loading%20dock"), facts()));
    EXPECT_TRUE(probeForUs(withScope("onvif://www.onvif.org/type"), facts()));
    EXPECT_FALSE(probeForUs(withScope("onvif://www.onvif.org/name/Yard"), facts()));
}

TEST(ProbeAnswer, ReadsBack) {
    const std::string text = probeAnswer("urn:uuid:1", facts(), "http://10.0.0.5:8080/onvif/device_service");
    const std::vector<ProbeMatch> matches = readProbeMatches(text, {"urn:uuid:1"});
    ASSERT_EQ(matches.size(), 1U);
    EXPECT_EQ(matches[0].endpoint, facts().endpoint);
    EXPECT_EQ(matches[0].addresses, std::vector<std::string>{"http://10.0.0.5:8080/onvif/device_service"});
    EXPECT_EQ(scopeValue(matches[0].scopes, "name"), "Loading dock");
}

TEST(OnvifFacts, EndpointStaysTheSameAndIsAUuid) {
    EXPECT_EQ(facts().endpoint, facts().endpoint);
    EXPECT_EQ(facts().endpoint.size(), 45U);
    EXPECT_NE(onvifFacts({}, 1).endpoint, onvifFacts({}, 2).endpoint);
}

} // namespace
