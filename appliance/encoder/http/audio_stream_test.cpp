#include "appliance/encoder/http/audio_stream.h"

#include "appliance/encoder/testing/test_client.h"

#include <gtest/gtest.h>

TEST(Audio, MuLawHasTheStandardValues) {
    EXPECT_EQ(muLaw(0), 0xFF);
    EXPECT_EQ(muLaw(-1), 0x7F);
    EXPECT_EQ(muLaw(32767), 0x80);
    EXPECT_EQ(muLaw(-32768), 0x00);
    EXPECT_EQ(muLaw(1000), 0xCE);
}

TEST(Audio, TheToneIsHalfSilence) {
    const std::string second = toneSamples(0, 8000);
    EXPECT_EQ(static_cast<std::uint8_t>(second[4]), muLaw(6000));
    EXPECT_EQ(second.substr(4000), std::string(4000, '\xFF'));
    EXPECT_EQ(toneSamples(8000, 100), toneSamples(0, 100));
}

TEST(Audio, StreamsAtTheRateOfTheSamples) {
    const TestEncoder encoder({"--audio"});
    Client client(encoder.http());
    client.send("GET /vexo-cgi/audio/receive.cgi HTTP/1.1\r\n\r\n");
    ClientReply head = client.readHead();
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers["content-type"], "audio/basic");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.readBytes(4000), toneSamples(0, 4000));
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
}

TEST(Audio, IsServedOnlyIfOffered) {
    const TestEncoder encoder;
    EXPECT_EQ(get(encoder.http(), "/vexo-cgi/audio/receive.cgi").status, 404);
}
