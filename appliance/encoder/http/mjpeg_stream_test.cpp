#include "appliance/encoder/http/mjpeg_stream.h"

#include "appliance/encoder/testing/test_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tuple>

namespace {

constexpr const char* streamPath = "/vexo-cgi/mjpg/video.cgi";

// A client that has read its stream's head.
std::unique_ptr<Client> streamFrom(const TestEncoder& encoder, const std::string& query = {},
                                   int buffer = 0) {
    auto client = std::make_unique<Client>(encoder.http(), buffer);
    client->send("GET " + std::string(streamPath) + query + " HTTP/1.1\r\n\r\n");
    ClientReply head = client->readHead();
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.headers["content-type"], "multipart/x-mixed-replace;boundary=video-encoder-picture");
    return client;
}

JpegInfo nextPicture(Client& client) {
    return lookAt(nextPart(client).value());
}

} // namespace

TEST(MjpegStream, PicturesHaveTheSourceAndAnAdvancingCounter) {
    const TestEncoder encoder({"--mark", "7", "--fps", "50"});
    const auto client = streamFrom(encoder);
    const JpegInfo first = nextPicture(*client);
    EXPECT_EQ(first.width, 160);
    EXPECT_EQ(first.height, 120);
    ASSERT_TRUE(first.mark.has_value());
    EXPECT_EQ(first.mark->source, 7);
    int last = first.mark->counter;
    for (int i = 0; i < 20; ++i) {
        const JpegInfo next = nextPicture(*client);
        ASSERT_TRUE(next.mark.has_value());
        EXPECT_GT(next.mark->counter, last);
        last = next.mark->counter;
    }
}

TEST(MjpegStream, EachCameraAndTheQuadViewHasItsOwnMark) {
    const TestEncoder encoder({"--inputs", "3", "--mark", "10"});
    const std::pair<const char*, int> cases[] = {{"", 10},          {"?camera=1", 10},     {"?camera=2", 11},
                                                 {"?camera=3", 12}, {"?camera=quad", 138}, {"?quad=1", 138},
                                                 {"?camera=0", 138}};
    for (const auto& [query, source] : cases)
        EXPECT_EQ(nextPicture(*streamFrom(encoder, query)).mark->source, source) << query;
}

TEST(MjpegStream, TheQuadViewShowsEveryInput) {
    const TestEncoder encoder({"--inputs", "4", "--width", "640", "--height", "480"});
    const auto client = streamFrom(encoder, "?camera=quad");
    const JpegInfo picture = nextPicture(*client);
    EXPECT_EQ(picture.width, 640);
    EXPECT_EQ(picture.mark->source, 129);
}

TEST(MjpegStream, ResolutionAndCompressionTakeEffect) {
    const TestEncoder encoder;
    const JpegInfo large = nextPicture(*streamFrom(encoder, "?camera=1&resolution=640x480&compression=30"));
    EXPECT_EQ(large.width, 640);
    EXPECT_EQ(large.height, 480);
    EXPECT_TRUE(large.mark.has_value());
    const std::size_t good = nextPart(*streamFrom(encoder, "?compression=0")).value().size();
    const std::size_t poor = nextPart(*streamFrom(encoder, "?compression=100")).value().size();
    EXPECT_LT(poor * 2, good);
    EXPECT_TRUE(nextPicture(*streamFrom(encoder, "??&nonsense&=&")).mark.has_value());
}

TEST(MjpegStream, FpsLimitsThePictures) {
    const TestEncoder encoder({"--fps", "60"});
    const auto client = streamFrom(encoder, "?fps=10");
    const int first = nextPicture(*client).mark->counter;
    int last = first;
    for (int i = 0; i < 5; ++i)
        last = nextPicture(*client).mark->counter;
    EXPECT_GE(last - first, 25); // 30, less the time that the first picture was early
}

// A decoder asks like this when a source has only an address.
TEST(MjpegStream, EmptyValuesMeanTheDefault) {
    const TestEncoder encoder({"--mark", "4"});
    for (const char* query : {"?&compression=", "?&resolution=&compression=",
                              "?camera=1&resolution=&compression=", "?camera=&fps=", "?", "??compression="}) {
        const JpegInfo picture = nextPicture(*streamFrom(encoder, query));
        EXPECT_EQ(picture.width, 160) << query;
        EXPECT_EQ(picture.mark->source, 4) << query;
    }
}

TEST(MjpegStream, SizesHaveNames) {
    const TestEncoder encoder;
    for (const auto& [name, width, height] : {std::tuple("qcif", 176, 144),
                                              {"CIF", 352, 288},
                                              {"2CIF", 704, 288},
                                              {"4CIF", 704, 576},
                                              {"D1", 720, 576}}) {
        const JpegInfo picture = nextPicture(*streamFrom(encoder, std::string("?resolution=") + name));
        EXPECT_EQ(picture.width, width) << name;
        EXPECT_EQ(picture.height, height) << name;
    }
}

TEST(MjpegStream, BadQueriesAreRefused) {
    const TestEncoder encoder({"--inputs", "2"});
    for (const char* query : {"?camera=3", "?camera=-1", "?camera=x"})
        EXPECT_EQ(get(encoder.http(), streamPath + std::string(query)).status, 404) << query;
    for (const char* query :
         {"?resolution=0x0", "?resolution=640", "?resolution=640x", "?resolution=9CIF",
          "?resolution=99999x99999", "?compression=101", "?compression=x", "?fps=0", "?fps=99"})
        EXPECT_EQ(get(encoder.http(), streamPath + std::string(query)).status, 400) << query;
    const TestEncoder other({"--kinds", "none"});
    EXPECT_EQ(get(other.http(), streamPath).status, 404);
    EXPECT_EQ(get(other.http(), "/vexo-cgi/jpg/image.cgi").status, 404);
}

TEST(MjpegStream, AStillPictureIsServed) {
    const TestEncoder encoder({"--mark", "3"});
    const ClientReply reply = get(encoder.http(), "/vexo-cgi/jpg/image.cgi?resolution=320x240");
    EXPECT_EQ(reply.status, 200);
    const JpegInfo picture = lookAt(reply.body);
    EXPECT_EQ(picture.width, 320);
    EXPECT_EQ(picture.mark->source, 3);
}

TEST(MjpegStream, ANewClientDoesNotWaitForTheNextPicture) {
    const TestEncoder encoder({"--fps", "1"});
    const auto watcher = streamFrom(encoder); // keeps the source busy: one picture a second
    nextPicture(*watcher);
    nextPicture(*watcher);
    const auto start = std::chrono::steady_clock::now();
    nextPicture(*streamFrom(encoder));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
}

TEST(MjpegStream, ASlowClientSeesNewPicturesAndDelaysNoOther) {
    const TestEncoder encoder({"--fps", "50", "--width", "1280", "--height", "720"});
    const auto slow = streamFrom(encoder, {}, 4096); // does not read yet
    const auto quick = streamFrom(encoder);
    const int first = nextPicture(*quick).mark->counter;
    int last = first;
    for (int i = 0; i < 60; ++i)
        last = nextPicture(*quick).mark->counter;
    EXPECT_GE(last - first, 60);
    // The kernel has buffered old pictures; new ones follow them.
    int newest = 0;
    for (int i = 0; i < 40 && newest < last; ++i)
        newest = nextPicture(*slow).mark->counter;
    EXPECT_GE(newest, last);
}

TEST(MjpegStream, ManyClientsAreServedAtOnce) {
    const TestEncoder encoder({"--inputs", "2"});
    std::vector<std::unique_ptr<Client>> clients;
    clients.reserve(20);
    for (int i = 0; i < 20; ++i)
        clients.push_back(streamFrom(encoder, i % 2 == 0 ? "?camera=1" : "?camera=2"));
    for (int round = 0; round < 5; ++round) {
        for (std::size_t i = 0; i < clients.size(); ++i)
            EXPECT_EQ(nextPicture(*clients[i]).mark->source, i % 2 == 0 ? 1 : 2);
    }
}

TEST(MjpegStream, CredentialsAreNeeded) {
    const TestEncoder encoder({"--user", "u", "--password", "p"});
    EXPECT_EQ(get(encoder.http(), streamPath).status, 401);
    Client client(encoder.http());
    client.send("GET " + std::string(streamPath) + " HTTP/1.1\r\nAuthorization: Basic " +
                base64Encoded("u:p") + "\r\n\r\n");
    EXPECT_EQ(client.readHead().status, 200);
    EXPECT_TRUE(nextPicture(client).mark.has_value());
}
