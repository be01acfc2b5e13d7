#include "appliance/encoder/server/server.h"

#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

constexpr const char* query = "/vexo-cgi/view/param.cgi?action=list&group=Image.Rotation";

} // namespace

TEST(Server, OpensOnlyThePortsThatWereRequested) {
    const TestEncoder encoder;
    EXPECT_NE(encoder.http(), 0);
    EXPECT_EQ(encoder.https(), 0);
    EXPECT_EQ(encoder.rtsp(), 0);
    EXPECT_EQ(encoder.control(), 0);
}

TEST(Server, APortInUseIsAnError) {
    const TestEncoder first;
    Options options;
    options.httpPort = first.http();
    Device device(options);
    Server second(device);
    EXPECT_THAT(second.start(), testing::HasSubstr("Address already in use"));
}

TEST(Server, AnInvalidAddressIsAnError) {
    Options options;
    options.address = "nowhere";
    Device device(options);
    Server server(device);
    EXPECT_THAT(server.start(), testing::HasSubstr("'nowhere' is not an IPv4 address"));
}

TEST(Server, ARefusingEncoderComesBackOnTheSamePort) {
    TestEncoder encoder({"--control", "0"});
    Client open(encoder.http());
    EXPECT_EQ(open.get(query).status, 200);
    encoder.setFaults("refuse");
    bool reset = false;
    EXPECT_EQ(open.readToEnd(&reset), "");
    EXPECT_TRUE(reset) << "open connections must be reset";
    EXPECT_FALSE(Client(encoder.http()).connected());
    EXPECT_EQ(get(encoder.control(), "/faults").body, "refuse\n");
    encoder.setFaults("");
    EXPECT_EQ(get(encoder.http(), query).status, 200);
}

TEST(Server, RefusingFromTheStartCanBeEnded) {
    TestEncoder encoder({"--fault", "refuse"});
    EXPECT_FALSE(Client(encoder.http()).connected());
    encoder.setFaults("");
    EXPECT_EQ(get(encoder.http(), query).status, 200);
}

TEST(Server, TheRequestThatSwitchesRefusingOnGetsItsReply) {
    TestEncoder encoder;
    Client client(encoder.http());
    client.send("POST /faults HTTP/1.1\r\nContent-Length: 6\r\n\r\nrefuse");
    EXPECT_EQ(client.readReply().body, "refuse\n");
    EXPECT_FALSE(Client(encoder.http()).connected());
}

TEST(Server, TurnsConnectionsAwayBeyondTheLimitAndRecovers) {
    TestEncoder encoder({"--max-connections", "3", "--control", "0"});
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 3; ++i) {
        clients.push_back(std::make_unique<Client>(encoder.http()));
        ASSERT_EQ(clients.back()->get(query).status, 200);
    }
    Client fourth(encoder.http());
    EXPECT_EQ(fourth.readToEnd(), "");
    EXPECT_EQ(get(encoder.control(), "/faults").status, 200) << "the control port has its own places";
    clients.clear();
    int status = 0;
    for (int i = 0; i < 1000 && status != 200; ++i)
        status = get(encoder.http(), query).status;
    EXPECT_EQ(status, 200);
}

TEST(Server, IdleConnectionsDoNotDelayItsEnd) {
    auto encoder = std::make_unique<TestEncoder>(std::vector<std::string>{"--https"});
    const Client idle(encoder->http());
    const Client noHandshake(encoder->https());
    Client streaming(encoder->http());
    streaming.send("GET /vexo-cgi/mjpg/video.cgi HTTP/1.1\r\n\r\n");
    ASSERT_EQ(streaming.readHead().status, 200);
    const auto start = std::chrono::steady_clock::now();
    encoder.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}
