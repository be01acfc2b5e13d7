#include "appliance/streams/multipart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace streams {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* announced = "multipart/x-mixed-replace; boundary=next";

// Feeds the body in pieces of that size; 0: in one piece.
std::vector<std::string> partsOf(const std::string& contentType, const std::string& body,
                                 std::size_t piece = 0) {
    std::vector<std::string> parts;
    MultipartReader reader(contentType, [&](std::string_view part) { parts.emplace_back(part); });
    if (piece == 0)
        reader.feed(body.data(), body.size());
    else
        for (std::size_t at = 0; at < body.size(); at += piece)
            reader.feed(body.data() + at, std::min(piece, body.size() - at));
    return parts;
}

std::string partOf(const std::string& body) {
    return "Content-Type: image/jpeg\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body +
           "\r\n--next\r\n";
}

TEST(MultipartReader, PartsWithTheirLengthComeAtOnce) {
    const std::string body =
        "--next\r\n" + partOf("one") + partOf("") + partOf(std::string("a\0b\r\n--nex", 10));
    for (const std::size_t piece : {0, 1, 2, 7, 64})
        EXPECT_THAT(partsOf(announced, body, piece), ElementsAre("one", "", std::string("a\0b\r\n--nex", 10)))
            << piece;
}

TEST(MultipartReader, PartWithALengthDoesNotWaitForTheNextBoundary) {
    EXPECT_THAT(partsOf(announced, "--next\r\nContent-Length: 3\r\n\r\none"), ElementsAre("one"));
}

TEST(MultipartReader, PartsWithoutALengthEndAtTheBoundary) {
    const std::string body =
        "--next\r\nContent-Type: image/jpeg\r\n\r\none\r\n--next\r\nX: y\r\n\r\ntwo\n--next\r\n";
    for (const std::size_t piece : {0, 1, 5})
        EXPECT_THAT(partsOf(announced, body, piece), ElementsAre("one", "two")) << piece;
}

TEST(MultipartReader, BareNewlinesAreAccepted) {
    EXPECT_THAT(partsOf(announced, "--next\nContent-Length: 3\n\none\n--next\nContent-Length: 3\n\ntwo"),
                ElementsAre("one", "two"));
}

TEST(MultipartReader, BoundaryIsFoundInEveryForm) {
    const std::string body = "\r\n--next\r\n" + partOf("one");
    for (const char* type :
         {"multipart/x-mixed-replace;boundary=next", "multipart/x-mixed-replace; BOUNDARY=\"next\"",
          "multipart/x-mixed-replace; boundary=--next", "multipart/x-mixed-replace; boundary=next; x=y",
          "multipart/x-mixed-replace", "", "text/plain; boundary="})
        EXPECT_THAT(partsOf(type, body), ElementsAre("one")) << type;
}

TEST(MultipartReader, TextBeforeTheFirstBoundaryIsSkipped) {
    EXPECT_THAT(partsOf(announced,
                        "hello\r\n\r\n" + std::string(100'000, 'x') + "\r\n--next\r\n" + partOf("one"), 999),
                ElementsAre("one"));
}

TEST(MultipartReader, WrongLengthCostsOnePartOnly) {
    EXPECT_THAT(partsOf(announced, "--next\r\nContent-Length: 1\r\n\r\none\r\n--next\r\n" + partOf("two")),
                ElementsAre("o", "two"));
    EXPECT_THAT(partsOf(announced, "--next\r\nContent-Length: -5\r\n\r\none\r\n--next\r\n" + partOf("two")),
                ElementsAre("one", "two"));
    EXPECT_THAT(
        partsOf(announced,
                "--next\r\nContent-Length: 99999999999999999999999\r\n\r\none\r\n--next\r\n" + partOf("two")),
        ElementsAre("one", "two"));
}

TEST(MultipartReader, TooLongPartsAndHeadersAreSkipped) {
    const std::string large(MultipartReader::partLimit + 1000, 'x');
    EXPECT_THAT(partsOf(announced, "--next\r\nContent-Length: " + std::to_string(large.size()) + "\r\n\r\n" +
                                       large + "\r\n--next\r\n" + partOf("two")),
                ElementsAre("two"));
    EXPECT_THAT(partsOf(announced, "--next\r\n\r\n\r\n" + large + "\r\n--next\r\n" + partOf("two"), 100'000),
                ElementsAre("two"));
    EXPECT_THAT(
        partsOf(announced, "--next\r\nX: y\r\n\r\n" + large + "\r\n--next\r\n" + partOf("two"), 100'000),
        ElementsAre("two"));
    EXPECT_THAT(partsOf(announced, "--next\r\nX: " + std::string(20'000, 'x') + "\r\n\r\none\r\n--next\r\n" +
                                       partOf("two")),
                ElementsAre("two"));
}

TEST(MultipartReader, PartWithoutAnyHeaderIsAccepted) {
    EXPECT_THAT(partsOf(announced, "--next\r\n\r\none\r\n--next\n\ntwo\n--next\r\n"),
                ElementsAre("one", "two"));
    EXPECT_THAT(partsOf(announced, "--next\r\n\r\none\r\n--next\n\ntwo\n--next\r\n", 1),
                ElementsAre("one", "two"));
}

TEST(MultipartReader, PartLengthAtTheLimitIsAccepted) {
    const std::string large(MultipartReader::partLimit, 'x');
    EXPECT_THAT(partsOf(announced, "--next\r\n" + partOf(large)), ElementsAre(large));
}

TEST(MultipartReader, BoundaryLineWithoutAnEndIsNotAPart) {
    EXPECT_THAT(partsOf(announced, "--next" + std::string(100'000, '-'), 1000), IsEmpty());
}

TEST(MultipartReader, NoiseDoesNoHarm) {
    std::mt19937 random(7);
    const std::string alphabet("--next\r\n\r\n:Content-Length: 12\r\n\0\xff", 34);
    for (int round = 0; round < 100; ++round) {
        std::string noise;
        for (int i = 0; i < 3000; ++i)
            noise += random() % 3 == 0 ? alphabet.substr(0, random() % alphabet.size())
                                       : std::string(1, alphabet[random() % alphabet.size()]);
        for (const char* type : {announced, ""})
            for (const std::string& part : partsOf(type, noise, 1 + random() % 100))
                ASSERT_LE(part.size(), MultipartReader::partLimit);
    }
}

TEST(MultipartReader, FindsAGoodPartAfterNoise) {
    const std::string noise = "--next\r\nContent-Length: "
                              "7\r\n--next\r\n\r\nX\r\n\r\n--nex--next--next\r\nContent-Length: x\r\n\r\n";
    for (std::size_t cut = 0; cut <= noise.size(); ++cut) {
        const auto parts =
            partsOf(announced, noise.substr(cut) + "12345678\r\n--next\r\n" + partOf("after all"), 5);
        ASSERT_FALSE(parts.empty()) << cut;
        EXPECT_EQ(parts.back(), "after all") << cut;
    }
}

} // namespace
} // namespace streams
