#include "appliance/gateway/warm/mpeg2_pieces.h"

#include "appliance/gateway/warm/packet_marks.h"
#include "appliance/gateway/warm/transport_packets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace gateway;

namespace {

std::string code(int value) {
    return std::string("\0\0\1", 3) + static_cast<char>(value);
}

std::string picture(char slices) {
    return code(0x00) + "hd" + code(0x01) + std::string(300, slices);
}

std::string keyPicture(char slices) {
    return code(0xb3) + "seq" + code(0xb8) + "grp" + picture(slices);
}

// Feeds in pieces of that size.
std::vector<KeptItem> piecesOf(const std::string& stream, std::size_t size) {
    std::vector<KeptItem> items;
    Mpeg2Pieces pieces([&](const KeptItem& item) { items.push_back(item); });
    for (std::size_t at = 0; at < stream.size(); at += size)
        pieces.feed(std::string_view(stream).substr(at, size));
    return items;
}

std::string joined(const std::vector<KeptItem>& items) {
    std::string all;
    for (const KeptItem& item : items)
        all += *item.bytes;
    return all;
}

std::size_t keysIn(const std::vector<KeptItem>& items) {
    return static_cast<std::size_t>(std::ranges::count_if(items, &KeptItem::key));
}
std::size_t picturesIn(const std::vector<KeptItem>& items) {
    return static_cast<std::size_t>(std::ranges::count_if(items, &KeptItem::newPicture));
}

std::string transportPacket(int id, bool begins, const std::string& payload) {
    std::string packet{'\x47', static_cast<char>((begins ? 0x40 : 0) | id >> 8), static_cast<char>(id & 255),
                       '\x10'};
    packet += payload.substr(0, transportBytes - 4);
    packet.resize(transportBytes, '\xff');
    return packet;
}

std::string programs() {
    return transportPacket(0, true, std::string("\0\0\xb0\x0d", 4));
}
std::string streamsTable() {
    return transportPacket(0x100, true, std::string("\0\2\xb0\x12", 4));
}
std::string videoStart(bool key) {
    const std::string header = code(0xe0) + std::string("\0\0\x80\0\0", 5);
    return transportPacket(0x101, true, header + (key ? keyPicture('k') : picture('p')));
}
std::string videoMore() {
    return transportPacket(0x101, false, "more");
}

// What a player that begins with the group gets, and how many of its bytes are before the live ones.
struct Joined {
    std::string bytes;
    std::size_t behind;
};
Joined joinedGroup(const std::vector<KeptItem>& items) {
    KeptGroup group(std::make_shared<KeptBudget>(KeptBudget{1 << 20, 0}), 0);
    for (const KeptItem& item : items)
        group.add(item);
    Joined all{"", 0};
    for (std::size_t i = 0; i < group.items().size(); ++i) {
        if (i == group.live())
            all.behind = all.bytes.size();
        all.bytes += *group.items()[i].bytes;
    }
    return all;
}

} // namespace

TEST(Mpeg2Pieces, EveryByteIsPassedOnWhateverThePiecesAre) {
    const std::string stream = picture('a') + keyPicture('b') + picture('c') + keyPicture('d') + picture('e');
    for (const std::size_t size : {1, 2, 3, 5, 64, 10000}) {
        const std::vector<KeptItem> items = piecesOf(stream, size);
        EXPECT_TRUE(stream.starts_with(joined(items))) << size;
        EXPECT_GE(joined(items).size(), stream.size() - 3) << size;
        EXPECT_EQ(keysIn(items), 2U) << size;
        EXPECT_EQ(picturesIn(items), 5U) << size;
    }
}

TEST(Mpeg2Pieces, AnElementaryStreamBeginsWithTheSequenceHeader) {
    const std::string stream = picture('a') + keyPicture('b') + picture('c') + picture('d') + "end";
    for (const std::size_t size : {1, 7, 10000}) {
        const Joined all = joinedGroup(piecesOf(stream, size));
        EXPECT_TRUE(all.bytes.starts_with(keyPicture('b') + picture('c'))) << size;
        EXPECT_EQ(all.behind, (keyPicture('b') + picture('c')).size()) << size;
    }
}

TEST(Mpeg2Pieces, AProgramStreamBeginsWithThePack) {
    const std::string pack = code(0xba) + "pack" + code(0xe0) + "pes";
    const std::string stream = pack + picture('a') + pack + keyPicture('b') + pack + picture('c') + "end";
    for (const std::size_t size : {1, 7, 10000}) {
        const Joined all = joinedGroup(piecesOf(stream, size));
        EXPECT_TRUE(all.bytes.starts_with(pack + keyPicture('b') + pack + picture('c'))) << size;
    }
}

TEST(Mpeg2Pieces, ATransportStreamBeginsWithItsTables) {
    const std::string stream = programs() + streamsTable() + videoStart(false) + videoMore() +
                               videoStart(true) + videoMore() + videoStart(false);
    for (const std::size_t size : {1, 188, 200, 10000}) {
        const Joined all = joinedGroup(piecesOf(stream, size));
        EXPECT_EQ(all.bytes, programs() + streamsTable() + videoStart(true) + videoMore() + videoStart(false))
            << size;
        EXPECT_EQ(all.behind, 4 * transportBytes) << size;
    }
}

TEST(Mpeg2Pieces, ATransportStreamIsFoundAgainAfterLostBytes) {
    const std::string stream =
        programs() + streamsTable() + videoStart(false) + "lost" + videoStart(true) + videoMore();
    EXPECT_EQ(keysIn(piecesOf(stream, 100)), 1U);
}

TEST(TransportPackets, InRtpBeginWithTheirTablesToo) {
    const auto rtp = [](std::uint16_t sequence, std::uint32_t time, const std::string& payload) {
        return streams::makeRtp({.marker = false,
                                 .payloadType = 33,
                                 .sequence = sequence,
                                 .timestamp = time,
                                 .source = 1,
                                 .payload = payload});
    };
    PacketMarks marks("MP2T");
    EXPECT_FALSE(marks.mark(rtp(1, 100, programs() + streamsTable())).key);
    EXPECT_FALSE(marks.mark(rtp(2, 200, videoStart(false))).key);
    const KeptItem key = marks.mark(rtp(3, 300, videoStart(true) + videoMore()));
    EXPECT_TRUE(key.key);
    ASSERT_NE(key.before, nullptr);
    const auto before = streams::readRtp(*key.before);
    ASSERT_TRUE(before);
    EXPECT_EQ(before->payload, programs() + streamsTable());
    EXPECT_EQ(before->sequence, 2);
    EXPECT_EQ(before->timestamp, 300U);
    EXPECT_EQ(marks.mark(rtp(4, 400, programs() + streamsTable() + videoStart(true))).before, nullptr);
}
