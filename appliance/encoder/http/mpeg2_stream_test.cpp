#include "appliance/encoder/http/mpeg2_stream.h"

#include "appliance/encoder/testing/test_client.h"

#include <gtest/gtest.h>

namespace {

constexpr const char* streamPath = "/vexo-cgi/mpeg2/video.cgi";

void beginStream(Client& client, const std::string& query = {}) {
    client.send("GET " + std::string(streamPath) + query + " HTTP/1.1\r\n\r\n");
    ClientReply head = client.readHead();
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers["content-type"], "video/mpeg");
}

// Reads up to the next picture and returns its type; 1 is a key picture.
int nextType(Client& client) {
    if (!client.readUntil(std::string("\0\0\1\0", 4)))
        return 0;
    const auto head = client.readBytes(2);
    return head ? static_cast<std::uint8_t>((*head)[1]) >> 3 & 7 : 0;
}

} // namespace

TEST(Mpeg2Stream, BeginsWithTheSequenceHeaderAndContinues) {
    const TestEncoder encoder({"--kinds", "mpeg2", "--inputs", "2", "--gop", "4", "--fps", "50"});
    for (const char* query : {"", "?camera=2", "?camera=quad"}) {
        Client client(encoder.http());
        beginStream(client, query);
        EXPECT_EQ(client.readBytes(4), std::string("\0\0\1\xB3", 4)) << query;
        for (int i = 0; i < 9; ++i)
            EXPECT_EQ(nextType(client), i % 4 == 0 ? 1 : 2) << query << " picture " << i;
    }
}

TEST(Mpeg2Stream, IsServedOnlyIfOffered) {
    const TestEncoder encoder({"--kinds", "mjpeg"});
    EXPECT_EQ(get(encoder.http(), streamPath).status, 404);
    const TestEncoder other({"--kinds", "mpeg2"});
    EXPECT_EQ(get(other.http(), std::string(streamPath) + "?camera=9").status, 404);
    EXPECT_EQ(get(other.http(), "/view/sdp/guide.sdp").status, 404);
}

TEST(Mpeg2Stream, FreezesStallsAndIsCutOff) {
    TestEncoder encoder({"--kinds", "mpeg2", "--fault", "freeze=3", "--fps", "50"});
    Client frozen(encoder.http());
    beginStream(frozen);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(nextType(frozen), i == 0 ? 1 : 2);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(nextType(frozen), 1) << "the same key picture again";
    encoder.setFaults("stall=2");
    Client stalled(encoder.http());
    beginStream(stalled);
    EXPECT_EQ(nextType(stalled), 1);
    EXPECT_EQ(nextType(stalled), 2);
    while (stalled.readBytes(1).has_value() && !stalled.silentFor(300)) {
    }
    encoder.setFaults("close=1");
    Client broken(encoder.http());
    beginStream(broken);
    bool reset = false;
    broken.readToEnd(&reset);
    EXPECT_TRUE(reset);
}
