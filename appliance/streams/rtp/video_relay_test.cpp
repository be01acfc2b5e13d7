#include "appliance/streams/rtp/video_relay.h"

#include "appliance/streams/rtp/test_packets.h"

#include <gmock/gmock.h>
#include <string>
#include <vector>

namespace streams {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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
} // namespace streams
