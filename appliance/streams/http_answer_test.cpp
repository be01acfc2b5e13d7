#include "appliance/streams/http_answer.h"

#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

struct Taken {
    int status = 0;
    std::string type;
    std::string body;
    std::string fault;
    bool over = false;
};

// The answer when it arrives in pieces of that many bytes.
Taken taken(const std::string& bytes, std::size_t piece) {
    Taken result;
    HttpAnswer answer(
        [&](int status, const std::string& type) {
            result.status = status;
            result.type = type;
            return true;
        },
        [&](const char* part, std::size_t count) {
            result.body.append(part, count);
            return true;
        });
    for (std::size_t at = 0; at < bytes.size() && !result.over; at += piece)
        result.over = !answer.feed(bytes.data() + at, std::min(piece, bytes.size() - at));
    result.fault = answer.fault();
    return result;
}

class HttpAnswerTest : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(InPieces, HttpAnswerTest, testing::Values(1, 2, 7, 100'000));

TEST_P(HttpAnswerTest, ABodyWithoutALengthGoesOn) {
    const Taken result =
        taken("HTTP/1.0 200 OK\r\nContent-Type: multipart/x-mixed-replace; boundary=b\r\n\r\n--b\r\nxyz",
              GetParam());
    EXPECT_EQ(result.status, 200);
    EXPECT_EQ(result.type, "multipart/x-mixed-replace; boundary=b");
    EXPECT_EQ(result.body, "--b\r\nxyz");
    EXPECT_FALSE(result.over);
}

TEST_P(HttpAnswerTest, ABodyEndsAfterItsLength) {
    const Taken result = taken("HTTP/1.1 200 OK\r\ncontent-length: 3\r\n\r\nabcdef", GetParam());
    EXPECT_EQ(result.body, "abc");
    EXPECT_TRUE(result.over);
    EXPECT_EQ(result.fault, "");
    EXPECT_TRUE(taken("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", GetParam()).over);
}

TEST_P(HttpAnswerTest, ChunksAreJoined) {
    const Taken result = taken("HTTP/1.1 200 OK\r\nTransfer-Encoding: Chunked\r\n\r\n"
                               "3\r\nabc\r\nA;x=y\r\n0123456789\r\n0\r\nTrailer: x\r\n\r\n",
                               GetParam());
    EXPECT_EQ(result.body, "abc0123456789");
    EXPECT_TRUE(result.over);
    EXPECT_EQ(result.fault, "");
}

TEST_P(HttpAnswerTest, AnInformationComesBeforeTheAnswer) {
    const Taken result = taken("HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 404 Not Found\n\nx", GetParam());
    EXPECT_EQ(result.status, 404);
    EXPECT_EQ(result.body, "x");
}

TEST_P(HttpAnswerTest, MalformedAnswersHaveAFault) {
    for (const char* bytes :
         {"ICY 200 OK\r\n\r\n", "HTTP/1.1 2000 OK?\r\nContent-Length: x\r\n\r\n", "\r\n\r\n",
          "HTTP/1.1 200 OK\r\nContent-Length: 12x\r\n\r\nabc",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: gzip\r\n\r\nabc",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nxyz\r\n",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabcd\r\n",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nFFFFFFFFFFFFFFFFFFFF\r\n"}) {
        const Taken result = taken(bytes, GetParam());
        EXPECT_TRUE(result.over) << bytes;
        EXPECT_NE(result.fault, "") << bytes;
    }
    EXPECT_EQ(taken("HTTP/1.1 200 OK\r\nX: " + std::string(70'000, 'x') + "\r\n\r\n", 5000).fault,
              "the response header is too long");
}

TEST(HttpAnswerTaker, MayEndTheAnswer) {
    HttpAnswer refused([](int, const std::string&) { return false; },
                       [](const char*, std::size_t) { return true; });
    const std::string bytes = "HTTP/1.1 200 OK\r\n\r\nx";
    EXPECT_FALSE(refused.feed(bytes.data(), bytes.size()));
    EXPECT_EQ(refused.fault(), "");
    HttpAnswer enough([](int, const std::string&) { return true; },
                      [](const char*, std::size_t) { return false; });
    EXPECT_FALSE(enough.feed(bytes.data(), bytes.size()));
}

} // namespace
} // namespace streams
