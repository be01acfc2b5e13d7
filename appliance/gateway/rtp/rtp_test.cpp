// Packets on their way through the gateway: reading them, order, parameter sets, what is kept, and the relay as a whole.
#include "appliance/gateway/rtp/kept_packets.h"
#include "appliance/gateway/rtp/parameter_sets.h"
#include "appliance/gateway/rtp/payload_kind.h"
#include "appliance/gateway/rtp/picture_size.h"
#include "appliance/gateway/rtp/reordering.h"
#include "appliance/gateway/rtp/rtp_packet.h"
#include "appliance/gateway/rtp/video_relay.h"

#include <gmock/gmock.h>
#include <vector>

namespace gateway {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const std::string sequenceSet("\x67\x42\x00\x1e", 4);
const std::string pictureSet("\x68\xce\x3c\x80", 4);
const std::string keyPicture("\x65picture", 8);
const std::string otherPicture("\x41\x9apicture", 9);
const std::string intraPicture("\x41\xb0picture", 9);
const std::string recoveryMessage("\x06\x06\x01\x84\x80", 5);

std::string rtp(std::uint16_t sequence, std::uint32_t time, std::string_view payload,
                std::uint32_t source = 7) {
    return makeRtp({.marker = true,
                    .payloadType = 96,
                    .sequence = sequence,
                    .timestamp = time,
                    .source = source,
                    .payload = payload});
}

// ---- Packets.

TEST(RtpPacket, IsReadAsItWasMade) {
    const auto packet = readRtp(rtp(0xfffe, 0x89abcdef, "abc", 0x12345678));
    ASSERT_TRUE(packet);
    EXPECT_TRUE(packet->marker);
    EXPECT_EQ(packet->payloadType, 96);
    EXPECT_EQ(packet->sequence, 0xfffe);
    EXPECT_EQ(packet->timestamp, 0x89abcdef);
    EXPECT_EQ(packet->source, 0x12345678U);
    EXPECT_EQ(packet->payload, "abc");
}

TEST(RtpPacket, ExtensionsContributorsAndPaddingAreNotPayload) {
    std::string bytes = rtp(1, 2, "");
    bytes[0] = static_cast<char>(0x80 | 0x20 | 0x10 | 1); // padding, extension, one contributor
    bytes += std::string("cccc", 4) + std::string("\xbe\xde\x00\x01xxxx", 8) + "payload" +
             std::string("\0\0\3", 3);
    EXPECT_EQ(readRtp(bytes)->payload, "payload");
}

TEST(RtpPacket, AnythingElseIsRefused) {
    EXPECT_FALSE(readRtp(""));
    EXPECT_FALSE(readRtp("\x80\x60"));
    EXPECT_FALSE(readRtp(std::string(12, '\0')));
    std::string padded = rtp(1, 2, "ab");
    padded[0] = static_cast<char>(0xa0);
    padded.back() = '\xff'; // more padding than there are bytes
    EXPECT_FALSE(readRtp(padded));
    std::string extended = rtp(1, 2, "ab");
    extended[0] = static_cast<char>(0x90);
    EXPECT_FALSE(readRtp(extended));
}

// ---- What a payload is.

TEST(PayloadKind, KeyPicturesOfEachEncoding) {
    EXPECT_TRUE(kindOf(Encoding::h264, keyPicture).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::h264, otherPicture).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::h264, "\x7c\x85xx").keyPicture);  // the first fragment of one
    EXPECT_FALSE(kindOf(Encoding::h264, "\x7c\x05xx").keyPicture); // a later fragment
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x26\x01xx", 4)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::h265, std::string("\x02\x01xx", 4)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x62\x01\x93xx", 5)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg4, std::string("\0\0\1\xb6\x10", 5)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::mpeg4, std::string("\0\0\1\xb6\x50", 5)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::jpeg, std::string("\0\0\0\0\1\x50\x10\x10", 8)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::jpeg, std::string("\0\0\1\0\1\x50\x10\x10", 8)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg2, std::string("\0\0\x21\0\0\0\1\xb3", 8)).keyPicture);
    EXPECT_TRUE(kindOf(Encoding::mpeg2, std::string("\0\0\0\0\0\0\1\xb3", 8)).keyPicture); // an empty header
    EXPECT_FALSE(kindOf(Encoding::mpeg2, std::string("\0\0\2\0\0\0\1\0", 8)).keyPicture);
    EXPECT_FALSE(kindOf(Encoding::other, keyPicture).keyPicture);
}

TEST(PayloadKind, SetsAreFoundInAggregates) {
    const std::string aggregate =
        std::string("\x78\0\4", 3) + sequenceSet + std::string("\0\4", 2) + pictureSet;
    EXPECT_TRUE(kindOf(Encoding::h264, aggregate).parameterSet);
    std::vector<std::string> sets;
    parameterSetsIn(Encoding::h264, aggregate, [&](std::string_view set) { sets.emplace_back(set); });
    EXPECT_THAT(sets, ElementsAre(sequenceSet, pictureSet));
}

TEST(PayloadKind, RecoveryPointsAndSlicesWithoutReferences) {
    EXPECT_TRUE(kindOf(Encoding::h264, recoveryMessage).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, recoveryMessage).prefix);
    EXPECT_FALSE(kindOf(Encoding::h264, std::string("\x06\x05\x01\x84\x80", 5)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, std::string("\x06\x05\x01x\x06\x01\x84\x80", 8)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h265, std::string("\x4e\x01\x06\x01\x84\x80", 6)).recoveryPoint);
    EXPECT_TRUE(kindOf(Encoding::h264, intraPicture).intra);
    EXPECT_FALSE(kindOf(Encoding::h264, intraPicture).whole);
    EXPECT_FALSE(kindOf(Encoding::h264, otherPicture).intra);
    EXPECT_TRUE(kindOf(Encoding::h264, "\x7c\x81\xb0x").intra);  // the first fragment of such a slice
    EXPECT_FALSE(kindOf(Encoding::h264, "\x7c\x01\xb0x").intra); // a later one
}

TEST(PayloadKind, DamagedPayloadsAreHarmless) {
    for (const Encoding encoding :
         {Encoding::h264, Encoding::h265, Encoding::mpeg4, Encoding::jpeg, Encoding::mpeg2}) {
        for (const char* bytes :
             {"", "\x78", "\x78\xff", "\x78\xff\xff", "\x60\x01\xff\xff\x01", "\x7c", "\x62\x01"}) {
            kindOf(encoding, bytes);
            parameterSetsIn(encoding, bytes, [](std::string_view) {});
            sizeInPayload(encoding, bytes);
        }
    }
}

// ---- Sizes: the sets are from a software encoder.

// As x265 sends it: one message with user data that is longer than the packet.
TEST(PayloadKind, ASupplementWithALengthBeyondItsEndIsRead) {
    for (std::size_t length = 3; length < 300; ++length) {
        const std::string h265 = std::string("\x4e\1\5\xff", 4) + std::string(length, '\xff');
        EXPECT_FALSE(kindOf(Encoding::h265, h265).keyPicture);
        const std::string h264 =
            std::string("\6\5", 2) + static_cast<char>(length % 255) + std::string(length / 2, 'x');
        EXPECT_FALSE(kindOf(Encoding::h264, h264).keyPicture);
    }
    EXPECT_FALSE(kindOf(Encoding::h265, std::string("\x4e\1\5\3abc", 7)).keyPicture);
}

TEST(PictureSize, OfMpeg4AndMpeg2) {
    EXPECT_EQ(
        sizeInFormat(
            Encoding::mpeg4,
            "96 profile-level-id=1; config=000001B0F1000001B5A913000001000000012008D48D0800CD0B042414103F"
            "000001B24C61766335392E33372E313030"),
        (PictureSize{352, 288}));
    EXPECT_EQ(sizeInFormat(Encoding::mpeg4, "96 config=000001"), std::nullopt);
    EXPECT_EQ(sizeInFormat(Encoding::mpeg4, "96 config=xyz"), std::nullopt);
    EXPECT_EQ(sizeInFormat(Encoding::h264, "96 packetization-mode=1"), std::nullopt);
    const std::string header("\0\0\1\xb3\x2d\x02\x40\x33", 8);
    EXPECT_EQ(sizeInPayload(Encoding::mpeg2, std::string(4, '\0') + header), (PictureSize{720, 576}));
    EXPECT_EQ(sizeInPayload(Encoding::mpeg2, header.substr(0, 5)), std::nullopt);
}

TEST(PictureSize, OfSequenceSets) {
    const auto size = [](Encoding encoding, const char* set) { return sizeOfSet(encoding, fromBase64(set)); };
    EXPECT_EQ(size(Encoding::h264, "Z2QADayyAsEtgIgAAAMACAAAAwGQeKFSQA=="), (PictureSize{352, 288}));
    EXPECT_EQ(size(Encoding::h264, "Z2QAKKyyAPAET8uAiAAAAwAIAAADAZB4wZJA"), (PictureSize{1920, 1080}));
    EXPECT_EQ(size(Encoding::h265, "QgEBAWAAAAMAkAAAAwAAAwA8oAsIBIWWVmkkyvAWgIAAAAMAgAAADIQ="),
              (PictureSize{352, 288}));
    EXPECT_EQ(size(Encoding::h265, "QgEBAWAAAAMAkAAAAwAAAwB4oAPAgBDlllZpJMrwFoCAAAADAIAAAAyE"),
              (PictureSize{1920, 1080}));
}

TEST(PictureSize, ACutSetHasNone) {
    const std::string set = fromBase64("Z2QADayyAsEtgIgAAAMACAAAAwGQeKFSQA==");
    for (std::size_t length = 0; length < 8; ++length)
        EXPECT_FALSE(sizeOfSet(Encoding::h264, set.substr(0, length))) << length;
}

// ---- Parameter sets.

TEST(ParameterSets, ComeFromTheDescription) {
    EXPECT_THAT(
        ParameterSets(Encoding::h264, "96 packetization-mode=1; sprop-parameter-sets=Z0IAHg==,aM48gA==")
            .all(),
        ElementsAre(sequenceSet, pictureSet));
    EXPECT_THAT(ParameterSets(Encoding::h264, "96 sprop-parameter-sets=,,*").all(), IsEmpty());
    EXPECT_EQ(
        ParameterSets(Encoding::h265, "96 sprop-vps=QAEMAf//AWAAAAMAkAAAAwAAAwA8lZgJ; sprop-pps=RAHBcrRiQA==")
            .all()
            .size(),
        2U);
}

TEST(ParameterSets, ANewSequenceSetReplacesTheOldOnes) {
    ParameterSets sets(Encoding::h264, "");
    for (const std::string& one : {sequenceSet, pictureSet, pictureSet, std::string("\x67\x64\x00\x28", 4)})
        sets.learn(one);
    EXPECT_THAT(sets.all(), ElementsAre(std::string("\x67\x64\x00\x28", 4)));
}

TEST(ParameterSets, AreBounded) {
    ParameterSets sets(Encoding::h264, "");
    for (int i = 0; i < 1000; ++i)
        sets.learn("\x68" + std::to_string(i) + "xx");
    EXPECT_LE(sets.all().size(), 16U);
    EXPECT_EQ(sets.all().back(), "\x68"
                                 "999xx"); // the newest one is among them
}

// ---- What is kept.

Packet packet(const std::string& bytes) {
    return std::make_shared<const std::string>(bytes);
}

TEST(KeptPackets, BeginWithTheLastKeyPicture) {
    KeptPackets kept(100);
    kept.add(packet("early"), false);
    EXPECT_THAT(kept.packets(), IsEmpty());
    for (const bool key : {true, false, true, false})
        kept.add(packet("12345"), key);
    EXPECT_EQ(kept.packets().size(), 2U);
    EXPECT_EQ(kept.bytes(), 10U);
}

TEST(KeptPackets, ATooLongGroupIsNotKept) {
    KeptPackets kept(12);
    for (const bool key : {true, false, false, false})
        kept.add(packet("12345"), key);
    EXPECT_THAT(kept.packets(), IsEmpty());
    kept.add(packet("12345"), true);
    EXPECT_EQ(kept.packets().size(), 1U);
}

// ---- Order.

class ReorderingTest : public testing::Test {
protected:
    void add(int sequence, std::int64_t now = 0) {
        order_.add(rtp(static_cast<std::uint16_t>(sequence), 0, ""), now);
    }

    std::vector<int> taken_;
    Reordering order_{[this](std::string_view bytes) { taken_.push_back(readRtp(bytes)->sequence); }};
};

TEST_F(ReorderingTest, PacketsInOrderDoNotWait) {
    for (const int sequence : {65534, 65535, 0, 1})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(65534, 65535, 0, 1));
}

TEST_F(ReorderingTest, ALatePacketTakesItsPlaceAndTwinsAreDropped) {
    for (const int sequence : {10, 12, 13, 12, 11, 11, 14})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(10, 11, 12, 13, 14));
    EXPECT_EQ(order_.lost(), 0U);
}

TEST_F(ReorderingTest, AMissingPacketIsGivenUpInTime) {
    add(10, 0);
    add(12, 1000);
    order_.look(40'000);
    EXPECT_THAT(taken_, ElementsAre(10));
    order_.look(60'000);
    EXPECT_THAT(taken_, ElementsAre(10, 12));
    EXPECT_EQ(order_.lost(), 1U);
    add(11, 61'000);
    EXPECT_THAT(taken_, ElementsAre(10, 12));
}

TEST_F(ReorderingTest, ASenderThatBeginsAnewIsFollowed) {
    for (const int sequence : {10, 30000, 30001})
        add(sequence);
    EXPECT_THAT(taken_, ElementsAre(10, 30000, 30001));
}

TEST_F(ReorderingTest, TooManyWaitingPacketsGoOn) {
    add(0);
    for (int sequence = 2; sequence < 2 + static_cast<int>(Reordering::mostWaiting) + 1; ++sequence)
        add(sequence);
    EXPECT_EQ(taken_.size(), Reordering::mostWaiting + 2);
}

// ---- The relay.

class VideoRelayTest : public testing::Test {
protected:
    VideoRelay relayFor(const std::string& fmtp = "") {
        return {
            {.encodingName = "H264", .payloadType = 96, .clockRate = 90000, .fmtp = fmtp, .keptBytes = 1000},
            99,
            [this](const Packet& bytes, bool start) {
                out_.push_back(*readRtp(*bytes));
                payloads_.emplace_back(out_.back().payload);
                starts_.push_back(start);
            }};
    }
    std::vector<int> sequences() const {
        std::vector<int> all;
        for (const RtpPacket& one : out_)
            all.push_back(one.sequence);
        return all;
    }

    std::vector<RtpPacket> out_; // their payloads are in payloads_
    std::vector<std::string> payloads_;
    std::vector<bool> starts_;
};

TEST_F(VideoRelayTest, BeginsWithAKeyPictureAndRepeatsTheDescriptionsSets) {
    VideoRelay relay = relayFor("96 sprop-parameter-sets=Z0IAHg==,aM48gA==");
    relay.add(rtp(10, 100, otherPicture), 1);
    relay.add(rtp(11, 200, keyPicture), 2);
    relay.add(rtp(12, 300, otherPicture), 3);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, pictureSet, keyPicture, otherPicture));
    EXPECT_THAT(starts_, ElementsAre(true, false, false, false));
    EXPECT_THAT(sequences(), ElementsAre(11, 12, 13, 14));
    EXPECT_EQ(out_[0].timestamp, out_[2].timestamp);
    EXPECT_EQ(out_[0].source, 99U);
    EXPECT_EQ(relay.kept().packets().size(), 4U);
    EXPECT_EQ(relay.pictures(), 2U);
}

TEST_F(VideoRelayTest, SetsThatComeAreNotRepeated) {
    VideoRelay relay = relayFor("96 sprop-parameter-sets=Z0IAHg==,aM48gA==");
    relay.add(rtp(1, 100, sequenceSet), 1);
    relay.add(rtp(2, 100, pictureSet), 2);
    relay.add(rtp(3, 100, keyPicture), 3);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, pictureSet, keyPicture));
    EXPECT_EQ(relay.kept().packets().size(), 3U);
}

TEST_F(VideoRelayTest, SetsThatCameOnceAreRepeatedBeforeLaterKeyPictures) {
    VideoRelay relay = relayFor();
    relay.add(rtp(1, 100, sequenceSet), 1);
    relay.add(rtp(2, 100, keyPicture), 2);
    relay.add(rtp(3, 90100, keyPicture), 3);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, keyPicture, sequenceSet, keyPicture));
    EXPECT_THAT(sequences(), ElementsAre(1, 2, 3, 4));
    EXPECT_EQ(relay.keyInterval(), 1'000'000);
}

TEST_F(VideoRelayTest, ANewSessionGoesOnWithAGapAndAKeyPicture) {
    VideoRelay relay = relayFor();
    relay.add(rtp(1, 100, keyPicture), 1'000'000);
    relay.beginSession(2'000'000);
    EXPECT_THAT(relay.kept().packets(), IsEmpty());
    relay.add(rtp(5000, 777, otherPicture, 8), 2'000'000);
    relay.add(rtp(5001, 3777, keyPicture, 8), 2'033'333);
    ASSERT_EQ(out_.size(), 2U);
    EXPECT_GT(static_cast<std::uint16_t>(out_[1].sequence - out_[0].sequence), 50);
    EXPECT_NEAR(static_cast<double>(out_[1].timestamp - out_[0].timestamp), 93000, 200);
    EXPECT_EQ(out_[1].source, 99U);
}

TEST_F(VideoRelayTest, ARecoveryPointIsAStart) {
    VideoRelay relay = relayFor("96 sprop-parameter-sets=Z0IAHg==,aM48gA==");
    relay.add(rtp(1, 100, otherPicture), 1);
    relay.add(rtp(2, 3100, recoveryMessage), 2);
    relay.add(rtp(3, 3100, otherPicture), 2);
    relay.add(rtp(4, 6100, otherPicture), 3);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, pictureSet, recoveryMessage, otherPicture, otherPicture));
    EXPECT_THAT(starts_, ElementsAre(true, false, false, false, false));
    EXPECT_EQ(relay.kept().packets().size(), 5U);
    relay.add(rtp(5, 93100, recoveryMessage), 4);
    relay.add(rtp(6, 93100, otherPicture), 4);
    EXPECT_EQ(relay.kept().packets().size(), 4U);
    EXPECT_EQ(relay.keyInterval(), 1'000'000);
}

TEST_F(VideoRelayTest, SetsBeforeAPictureWithReferencesMakeNoStart) {
    VideoRelay relay = relayFor();
    relay.add(rtp(1, 100, sequenceSet), 1);
    relay.add(rtp(2, 100, keyPicture), 1);
    relay.add(rtp(3, 3100, sequenceSet), 2);
    relay.add(rtp(4, 3100, otherPicture), 2);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, keyPicture, sequenceSet, otherPicture));
    EXPECT_EQ(relay.kept().packets().size(), 4U);
    relay.add(rtp(5, 6100, sequenceSet), 3);
    relay.add(rtp(6, 6100, intraPicture), 3);
    EXPECT_EQ(relay.kept().packets().size(), 2U);
}

TEST_F(VideoRelayTest, WithoutAnyStartEachPictureBecomesOneInTheEnd) {
    constexpr std::int64_t second = 1'000'000;
    VideoRelay relay = relayFor("96 sprop-parameter-sets=Z0IAHg==,aM48gA==");
    std::uint16_t sequence = 1;
    for (std::int64_t time = second; time < 5 * second; time += second)
        relay.add(rtp(sequence++, static_cast<std::uint32_t>(time * 9 / 100), otherPicture), time);
    EXPECT_THAT(payloads_, IsEmpty());
    relay.add(rtp(sequence++, 600'000, otherPicture), 7 * second);
    EXPECT_THAT(payloads_, ElementsAre(sequenceSet, pictureSet, recoveryMessage, otherPicture));
    relay.add(rtp(sequence++, 603'000, otherPicture), 7 * second + 33'000);
    EXPECT_EQ(payloads_.size(), 8U);
    EXPECT_EQ(relay.kept().packets().size(), 4U); // of the newest picture
    EXPECT_EQ(relay.keyInterval(), 0);
    // A camera that sends key pictures after all is not disturbed any more.
    relay.add(rtp(sequence++, 606'000, keyPicture), 7 * second + 66'000);
    relay.add(rtp(sequence++, 609'000, otherPicture), 7 * second + 99'000);
    EXPECT_EQ(payloads_.size(), 12U);
    EXPECT_EQ(relay.kept().packets().size(), 4U);
}

TEST_F(VideoRelayTest, ALongGroupOfPicturesIsNotBroken) {
    VideoRelay relay = relayFor();
    relay.add(rtp(1, 100, keyPicture), 1'000'000);
    relay.add(rtp(2, 3100, otherPicture), 20'000'000);
    relay.add(rtp(3, 6100, otherPicture), 40'000'000);
    EXPECT_THAT(payloads_, ElementsAre(keyPicture, otherPicture, otherPicture));
    EXPECT_EQ(relay.kept().packets().size(), 3U);
}

TEST_F(VideoRelayTest, TheSizeIsThatOfTheNewestSets) {
    VideoRelay relay = relayFor("96 sprop-parameter-sets=Z2QADayyAsEtgIgAAAMACAAAAwGQeKFSQA==,aM48gA==");
    EXPECT_EQ(relay.size(), (PictureSize{352, 288}));
    relay.add(rtp(1, 100, fromBase64("Z2QAKKyyAPAET8uAiAAAAwAIAAADAZB4wZJA")), 1);
    EXPECT_EQ(relay.size(), (PictureSize{1920, 1080}));
}

TEST_F(VideoRelayTest, OtherPayloadTypesAndGarbageAreDropped) {
    VideoRelay relay = relayFor();
    std::string other = rtp(1, 1, keyPicture);
    other[1] = 97;
    relay.add(other, 1);
    relay.add("garbage that is long enough", 1);
    EXPECT_THAT(payloads_, IsEmpty());
}

} // namespace
} // namespace gateway
