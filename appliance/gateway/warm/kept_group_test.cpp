#include "appliance/gateway/warm/kept_group.h"

#include "appliance/gateway/warm/packet_marks.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace gateway;

namespace {

std::shared_ptr<KeptBudget> budget(std::size_t bytes = 1 << 20) {
    return std::make_shared<KeptBudget>(KeptBudget{bytes, 0});
}

KeptItem item(const std::string& bytes, std::uint64_t unit, bool newPicture, bool key = false) {
    KeptItem made;
    made.bytes = std::make_shared<const std::string>(bytes);
    made.unit = unit;
    made.newPicture = newPicture;
    made.key = key;
    return made;
}

std::string textOf(const KeptGroup& group) {
    std::string text;
    for (const KeptItem& one : group.items())
        text += *one.bytes + " ";
    return text;
}

std::string h264(std::uint16_t sequence, std::uint32_t timestamp, const std::string& payload) {
    return streams::makeRtp({.marker = false,
                             .payloadType = 96,
                             .sequence = sequence,
                             .timestamp = timestamp,
                             .source = 7,
                             .payload = payload});
}

const std::string set("\x67\x42\x00", 3);
const std::string keyStart("\x7c\x85zz", 4);
const std::string keyMiddle("\x7c\x05zz", 4);
const std::string other("\x41zz", 3);

} // namespace

TEST(KeptGroup, KeepsNothingBeforeAKeyPicture) {
    KeptGroup group(budget(), 0);
    group.add(item("a", 1, true));
    EXPECT_TRUE(group.items().empty());
    EXPECT_EQ(group.bytes(), 0U);
}

TEST(KeptGroup, AKeyPictureReplacesWhatWasBefore) {
    const auto shared = budget();
    KeptGroup group(shared, 0);
    group.add(item("K1", 1, true, true));
    group.add(item("p", 2, true));
    const std::size_t used = shared->used;
    group.add(item("K2", 3, true, true));
    EXPECT_EQ(textOf(group), "K2 ");
    EXPECT_LT(shared->used, used);
    group.clear();
    EXPECT_EQ(shared->used, 0U);
}

TEST(KeptGroup, TheNewestPictureIsLive) {
    KeptGroup group(budget(), 0);
    group.add(item("K", 1, true, true));
    EXPECT_EQ(group.live(), 0U);
    group.add(item("k", 1, false));
    group.add(item("p", 2, true));
    group.add(item("p", 2, false));
    EXPECT_EQ(group.live(), 2U);
}

TEST(KeptGroup, ADecoderThatReturnsPicturesLateGetsOneMoreAsLive) {
    KeptGroup group(budget(), 1);
    group.add(item("K", 1, true, true));
    EXPECT_EQ(group.live(), 0U);
    group.add(item("p", 2, true));
    EXPECT_EQ(group.live(), 0U);
    group.add(item("q", 3, true));
    EXPECT_EQ(group.live(), 1U);
}

TEST(KeptGroup, WhatADecoderNeedsFirstComesFirst) {
    KeptGroup group(budget(), 0);
    KeptItem key = item("K", 1, true, true);
    key.before = std::make_shared<const std::string>("tables");
    group.add(key);
    EXPECT_EQ(textOf(group), "tables K ");
}

TEST(KeptGroup, AGroupBeyondTheBudgetIsNotKeptAndTheNextOneIs) {
    const auto shared = budget(1000);
    KeptGroup group(shared, 0);
    group.add(item("K", 1, true, true));
    for (std::uint64_t unit = 2; unit < 20; ++unit)
        group.add(item(std::string(100, 'p'), unit, true));
    EXPECT_TRUE(group.items().empty());
    EXPECT_TRUE(group.overran());
    EXPECT_EQ(shared->used, 0U);
    group.add(item("K", 30, true, true));
    EXPECT_EQ(textOf(group), "K ");
    EXPECT_FALSE(group.overran());
}

TEST(KeptGroup, GroupsShareTheBudget) {
    const auto shared = budget(1000);
    KeptGroup first(shared, 0);
    first.add(item(std::string(700, 'a'), 1, true, true));
    {
        KeptGroup second(shared, 0);
        second.add(item(std::string(700, 'b'), 1, true, true));
        EXPECT_TRUE(second.items().empty());
    }
    EXPECT_EQ(first.items().size(), 1U);
    first.clear();
    EXPECT_EQ(shared->used, 0U);
}

TEST(PacketMarks, AKeyPictureIsMarkedOnce) {
    PacketMarks marks("H264");
    const KeptItem first = marks.mark(h264(1, 100, set));
    EXPECT_TRUE(first.key);
    EXPECT_TRUE(first.newPicture);
    const KeptItem second = marks.mark(h264(2, 100, keyStart));
    EXPECT_FALSE(second.key);
    EXPECT_FALSE(second.newPicture);
    const KeptItem third = marks.mark(h264(3, 3700, other));
    EXPECT_FALSE(third.key);
    EXPECT_TRUE(third.newPicture);
    EXPECT_TRUE(marks.mark(h264(4, 7300, keyStart)).key);
}

TEST(PacketMarks, APacketThatComesLateIsNoNewPicture) {
    PacketMarks marks("H264");
    marks.mark(h264(1, 3700, keyStart));
    EXPECT_FALSE(marks.mark(h264(0, 100, other)).newPicture);
    EXPECT_TRUE(marks.mark(h264(2, 7300, other)).newPicture);
    EXPECT_TRUE(marks.mark(h264(9, 7300U - 900000U, other)).newPicture) << "a sender that begins anew";
}

TEST(PacketMarks, PacketsOfAKeyPictureThatCameBeforeItsFirstAreKept) {
    PacketMarks marks("H264");
    KeptGroup group(budget(), 0);
    group.add(marks.mark(h264(1, 100, keyStart)));
    group.add(marks.mark(h264(2, 3700, other)));
    const KeptItem middle = marks.mark(h264(4, 7300, keyMiddle));
    const KeptItem start = marks.mark(h264(3, 7300, keyStart));
    group.add(middle);
    group.add(start);
    ASSERT_EQ(group.items().size(), 2U);
    EXPECT_EQ(group.items()[0].bytes, middle.bytes);
    EXPECT_EQ(group.items()[1].bytes, start.bytes);
    EXPECT_EQ(group.live(), 0U);
}

TEST(PacketMarks, BytesThatAreNoPacketAreHandedOnAndBeginNothing) {
    PacketMarks marks("H264");
    const KeptItem one = marks.mark("xx");
    EXPECT_EQ(*one.bytes, "xx");
    EXPECT_FALSE(one.key);
    EXPECT_FALSE(one.newPicture);
}

TEST(PacketMarks, AnMpeg2PacketBeginsAKeyPictureWithASequenceHeader) {
    const auto keyOf = [](const std::string& payload) {
        return PacketMarks("MPV").mark(h264(1, 100, payload)).key;
    };
    const std::string header("\0\0\0\0", 4);
    const std::string sequence("\0\0\1\xb3", 4);
    EXPECT_TRUE(keyOf(std::string("\0\0\x20\0", 4) + "x")) << "the header tells it";
    EXPECT_TRUE(keyOf(header + sequence)) << "the header does not tell it";
    EXPECT_TRUE(keyOf(header + header + sequence));
    EXPECT_FALSE(keyOf(header + std::string("\0\0\1\0", 4)));
    EXPECT_FALSE(keyOf(""));
}

TEST(PacketMarks, KnowsWhichEncodingsCanBeKept) {
    for (const char* name : {"H264", "H265", "MP4V-ES", "MPV", "MP2T", "JPEG"})
        EXPECT_TRUE(PacketMarks::knows(name)) << name;
    EXPECT_FALSE(PacketMarks::knows("VP8"));
}
