#include "appliance/streams/elementary_reader.h"

#include <gtest/gtest.h>

#include <string>

namespace streams {
namespace {

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

// What is read when the stream arrives in pieces of that many bytes.
std::string videoOf(Mpeg2Container container, const std::string& stream, std::size_t piece) {
    std::string video;
    ElementaryReader reader(container, [&](std::string_view part) { video += part; });
    for (std::size_t at = 0; at < stream.size(); at += piece)
        reader.feed(std::string_view(stream).substr(at, piece));
    return video;
}

std::string packetOf(int id, const std::string& header, const std::string& payload) {
    const std::size_t length = header.size() + payload.size();
    return bytes({0, 0, 1, id, static_cast<int>(length >> 8), static_cast<int>(length & 255)}) + header +
           payload;
}

const std::string plainHeader = bytes({0x80, 0x00, 0x00});
const std::string timedHeader = bytes({0x80, 0x80, 0x05, 0x21, 0, 1, 0, 1});

std::string transportPacket(int pid, bool begins, std::string payload) {
    std::string packet = bytes({0x47, (begins ? 0x40 : 0) | pid >> 8, pid & 255});
    const std::size_t room = 184;
    if (payload.size() >= room)
        return packet + bytes({0x10}) + payload.substr(0, room);
    packet += bytes({0x30, static_cast<int>(room - payload.size() - 1)});
    return packet + std::string(room - payload.size() - 1, '\xff') + payload;
}

class ElementaryReaderTest : public testing::TestWithParam<std::size_t> {};
INSTANTIATE_TEST_SUITE_P(InPieces, ElementaryReaderTest, testing::Values(1, 3, 100, 100'000));

TEST_P(ElementaryReaderTest, AnElementaryStreamIsPassedOn) {
    EXPECT_EQ(videoOf(Mpeg2Container::elementary, "abcdef", GetParam()), "abcdef");
}

TEST_P(ElementaryReaderTest, AProgramStreamLosesItsHeadersAndItsSound) {
    const std::string pack = bytes({0, 0, 1, 0xba, 0x44, 0, 4, 0, 4, 1, 0, 0, 3, 0xf8});
    const std::string stream = pack + packetOf(0xbb, "", "system") + packetOf(0xe0, timedHeader, "first ") +
                               packetOf(0xc0, plainHeader, "sound") + pack +
                               packetOf(0xe0, plainHeader, "second") + bytes({0, 0, 1, 0xb9});
    EXPECT_EQ(videoOf(Mpeg2Container::program, stream, GetParam()), "first second");
}

TEST_P(ElementaryReaderTest, PacketsOfMpeg1HaveOtherHeaders) {
    const std::string stream =
        packetOf(0xe0, bytes({0xff, 0xff, 0x60, 0x00, 0x31, 0, 1, 0, 1, 0x11, 0, 1, 0, 1}), "a") +
        packetOf(0xe0, bytes({0x21, 0, 1, 0, 1}), "b") + packetOf(0xe0, bytes({0x0f}), "cdefgh");
    EXPECT_EQ(videoOf(Mpeg2Container::program, stream, GetParam()), "abcdefgh");
}

TEST_P(ElementaryReaderTest, ATransportStreamLosesItsPacketsAndOtherStreams) {
    const std::string begin = bytes({0, 0, 1, 0xe0, 0, 0}) + timedHeader;
    const std::string stream =
        "noise" + transportPacket(0, true, std::string("\0table", 6)) +
        transportPacket(0x101, true, bytes({0, 0, 1, 0xc0, 0, 0}) + plainHeader + "sound") +
        transportPacket(0x100, false, "before the first packet") +
        transportPacket(0x100, true, begin + "first ") +
        transportPacket(0x100, false, std::string(184, 'x')) + transportPacket(0x101, false, "sound") +
        transportPacket(0x100, true, begin + "second") + transportPacket(0x1fff, false, "");
    // The last packet is taken when the next one begins.
    EXPECT_EQ(videoOf(Mpeg2Container::transport, stream, GetParam()),
              "first " + std::string(184, 'x') + "second");
}

TEST_P(ElementaryReaderTest, OddBytesDoNoHarm) {
    std::string odd;
    for (int i = 0; i < 3000; ++i)
        odd += static_cast<char>(i * 7 + i / 256);
    odd += std::string(600, '\x47') + bytes({0, 0, 1, 0xe0, 0, 1, 0xff}) +
           bytes({0, 0, 1, 0xe0, 0, 0, 0x80, 0, 255});
    for (const Mpeg2Container container : {Mpeg2Container::program, Mpeg2Container::transport})
        EXPECT_LE(videoOf(container, odd, GetParam()).size(), odd.size());
}

} // namespace
} // namespace streams
