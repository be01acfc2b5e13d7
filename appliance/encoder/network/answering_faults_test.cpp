#include "appliance/encoder/network/answering_faults.h"

#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::StartsWith;

constexpr const char* viewQuery = "/vexo-cgi/view/param.cgi?action=list&group=Image.Rotation";
constexpr const char* adminQuery = "/vexo-cgi/admin/param.cgi?action=list&group=Image.Rotation";
constexpr const char* getQuery = "/vexo-cgi/admin/getparam.cgi?Image.Rotation";
constexpr const char* streamPath = "/vexo-cgi/mjpg/video.cgi";

void beginStream(Client& client) {
    client.send(std::string("GET ") + streamPath + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readHead().status, 200);
}

} // namespace

TEST(AnsweringFaults, EveryRequestIsRefused) {
    TestEncoder encoder({"--fault", "404"});
    for (const char* target : {viewQuery, adminQuery, getQuery, streamPath})
        EXPECT_EQ(get(encoder.http(), target).status, 404);
    encoder.setFaults("401");
    for (const char* target : {viewQuery, adminQuery, getQuery, streamPath})
        EXPECT_EQ(get(encoder.http(), target).status, 401);
}

TEST(AnsweringFaults, OnlyTheViewerCgiIsRefused) {
    TestEncoder encoder;
    for (const auto& [fault, status] : {std::pair("404-view", 404), std::pair("401-view", 401)}) {
        encoder.setFaults(fault);
        EXPECT_EQ(get(encoder.http(), viewQuery).status, status);
        EXPECT_EQ(get(encoder.http(), adminQuery).body, "Image.Rotation=0\n");
        EXPECT_EQ(get(encoder.http(), getQuery).body, "Image.Rotation=0\n");
    }
    encoder.setFaults("hash");
    EXPECT_EQ(get(encoder.http(), viewQuery).status, 200);
    EXPECT_THAT(get(encoder.http(), viewQuery).body, StartsWith("#"));
    EXPECT_EQ(get(encoder.http(), adminQuery).body, "Image.Rotation=0\n");
}

TEST(AnsweringFaults, AStalledStreamStaysOpenAfterItsFrames) {
    TestEncoder encoder({"--fault", "stall=3", "--fps", "50"});
    Client client(encoder.http());
    beginStream(client);
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(nextPart(client).has_value());
    client.readBytes(2); // the line end after the last part
    EXPECT_TRUE(client.silentFor(400));
    encoder.setFaults("");
    EXPECT_TRUE(nextPart(client).has_value()) << "the stream was still open";
}

TEST(AnsweringFaults, AStreamCanStallBeforeItsFirstFrame) {
    const TestEncoder encoder({"--fault", "stall=0"});
    Client client(encoder.http());
    beginStream(client);
    EXPECT_TRUE(client.silentFor(300));
}

TEST(AnsweringFaults, AFrozenStreamRepeatsOnePicture) {
    const TestEncoder encoder({"--fault", "freeze=2", "--fps", "50"});
    Client client(encoder.http());
    beginStream(client);
    const std::string first = nextPart(client).value();
    const std::string second = nextPart(client).value();
    EXPECT_NE(lookAt(first).mark, lookAt(second).mark);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(nextPart(client), second);
}

TEST(AnsweringFaults, AStreamIsCutOffInTheMiddle) {
    const TestEncoder encoder({"--fault", "close=2", "--fps", "50"});
    Client client(encoder.http());
    beginStream(client);
    EXPECT_TRUE(nextPart(client).has_value());
    EXPECT_TRUE(nextPart(client).has_value());
    bool reset = false;
    client.readToEnd(&reset);
    EXPECT_TRUE(reset);
}

TEST(AnsweringFaults, GarbageHasNoHead) {
    const TestEncoder encoder({"--fault", "garbage"});
    Client client(encoder.http());
    client.send(std::string("GET ") + viewQuery + " HTTP/1.1\r\n\r\n");
    const std::string bytes = client.readToEnd();
    EXPECT_EQ(bytes.size(), 4096U);
    EXPECT_EQ(bytes.find("HTTP/1."), std::string::npos);
}

TEST(AnsweringFaults, SlowSendsSingleBytes) {
    const TestEncoder encoder({"--fault", "slow=10"});
    Client client(encoder.http());
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.get(viewQuery).body, "Image.Rotation=0\n");
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
}

TEST(AnsweringFaults, SilentAcceptsAndNeverAnswers) {
    const TestEncoder encoder({"--fault", "silent"});
    Client client(encoder.http());
    ASSERT_TRUE(client.connected());
    client.send(std::string("GET ") + viewQuery + " HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(client.silentFor(500));
    EXPECT_THAT(get(encoder.http(), "/requests").body, testing::HasSubstr("\"status\": 0}"));
}

TEST(AnsweringFaults, HugeSendsAHundredMegabytes) {
    const TestEncoder encoder({"--fault", "huge"});
    Client client(encoder.http());
    client.send(std::string("GET ") + viewQuery + " HTTP/1.1\r\n\r\n");
    EXPECT_EQ(client.readHead().headers["content-length"], "100000000");
    EXPECT_EQ(client.readBytes(5000000).value_or("").size(), 5000000U);
}

TEST(AnsweringFaults, EndlessHeadersDoNotEnd) {
    const TestEncoder encoder({"--fault", "endless-headers"});
    Client client(encoder.http());
    client.send(std::string("GET ") + viewQuery + " HTTP/1.1\r\n\r\n");
    const std::string bytes = client.readBytes(2000000).value_or("");
    EXPECT_EQ(bytes.size(), 2000000U);
    EXPECT_EQ(bytes.find("\r\n\r\n"), std::string::npos);
}

TEST(AnsweringFaults, DelayAnswersLate) {
    const TestEncoder encoder({"--fault", "delay=300"});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(get(encoder.http(), viewQuery).status, 200);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
}

TEST(AnsweringFaults, NoFaultDelaysTheEnd) {
    for (const char* fault : {"silent", "huge", "endless-headers", "slow=1000", "delay=60000", "stall=0"}) {
        auto encoder = std::make_unique<TestEncoder>(std::vector<std::string>{"--fault", fault});
        Client client(encoder->http());
        client.send(std::string("GET ") + streamPath + " HTTP/1.1\r\n\r\n");
        // Until the encoder has the request. Faults do not affect the control pages.
        std::string log;
        for (int i = 0;
             i < 200 && log.find(streamPath) == std::string::npos && std::string(fault) != "delay=60000"; ++i)
            log = get(encoder->http(), "/requests").body;
        const auto start = std::chrono::steady_clock::now();
        encoder.reset();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << fault;
    }
}
