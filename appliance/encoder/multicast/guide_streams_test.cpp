// The guide's streams on the wire. They are sent to 127.0.0.1 here, because a multicast needs its own network.
#include "appliance/encoder/multicast/guide_streams.h"

#include "appliance/encoder/pictures/drawn_sources.h"
#include "appliance/encoder/testing/udp_receiver.h"

#include <gtest/gtest.h>
#include <optional>
#include <set>

namespace {

constexpr const char* localAddress = "127.0.0.1";
constexpr std::size_t rtpHeader = 12;
constexpr std::size_t mpegHeader = 4;
constexpr int senderReport = 200;
constexpr int goodbye = 203;

int byteAt(const std::string& packet, std::size_t at) {
    return at < packet.size() ? static_cast<std::uint8_t>(packet[at]) : -1;
}

std::uint32_t timestampOf(const std::string& packet) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i < 8; ++i)
        value = value << 8 | static_cast<std::uint32_t>(byteAt(packet, i));
    return value;
}

bool isMarked(const std::string& packet) {
    return (byteAt(packet, 1) & 0x80) != 0;
}

// The types of the reports in one RTCP packet.
std::set<int> reportTypes(const std::string& packet) {
    std::set<int> types;
    for (std::size_t at = 0; at + 4 <= packet.size();
         at += 4U * (1U + (static_cast<unsigned>(byteAt(packet, at + 2)) << 8 |
                           static_cast<unsigned>(byteAt(packet, at + 3)))))
        types.insert(byteAt(packet, at + 1));
    return types;
}

class GuideVideoTest : public testing::Test {
protected:
    void start(int width, int height, int fps, const std::string& faults = {}) {
        FaultSet set;
        ASSERT_EQ(set.add(faults), "");
        faults_.set(set);
        source_.emplace("Name", width, height, fps, 1);
        stream_.emplace(*source_, CodecSettings{Codec::Mpeg2, 12, true, 0}, width, height);
        sender_.emplace(*stream_, faults_, localAddress, MulticastPlace{localAddress, ports_.port()});
    }
    // The bytes of the next picture, without the headers of its packets. All its packets have one time.
    std::string nextPicture() const {
        std::string picture;
        std::optional<std::uint32_t> time;
        while (true) {
            const std::string packet = ports_.data().receive();
            if (packet.size() <= rtpHeader + mpegHeader)
                return {};
            EXPECT_EQ(byteAt(packet, 1) & 0x7F, 32);
            EXPECT_EQ(timestampOf(packet), time.value_or(timestampOf(packet)));
            time = timestampOf(packet);
            picture += packet.substr(rtpHeader + mpegHeader);
            if (isMarked(packet))
                return picture;
        }
    }

    const UdpPortPair ports_;
    FaultSwitch faults_{FaultSet{}};
    std::optional<TestSource> source_;
    std::optional<CodecStream> stream_;
    std::optional<GuideVideo> sender_;
};

} // namespace

TEST_F(GuideVideoTest, SendsCompletePicturesOfTheStream) {
    start(320, 240, 25);
    CodecReader reader(*stream_);
    EXPECT_EQ(nextPicture().substr(0, 4), std::string("\0\0\1\xB3", 4))
        << "a key picture with its headers comes first";
    std::set<std::string> received;
    for (int i = 0; i < 10; ++i)
        received.insert(nextPicture());
    int found = 0;
    for (int i = 0; i < 20 && found < 5; ++i) {
        const AccessUnitPtr unit = reader.next(std::chrono::seconds(10));
        ASSERT_TRUE(unit);
        found += received.contains(unit->bytes) ? 1 : 0;
    }
    EXPECT_EQ(found, 5);
}

TEST_F(GuideVideoTest, ASmallPictureDoesNotWaitForTheNextOne) {
    start(64, 48, 10);
    std::set<std::uint32_t> times;
    for (int i = 0; i < 5; ++i) {
        const std::string packet = ports_.data().receive();
        EXPECT_LT(packet.size(), 1400U);
        EXPECT_TRUE(isMarked(packet)) << "one packet, one picture";
        times.insert(timestampOf(packet));
    }
    EXPECT_EQ(times.size(), 5U);
}

TEST_F(GuideVideoTest, ReportsComeAndTheLastOneIsAGoodbye) {
    start(160, 120, 25);
    const std::string packet = ports_.data().receive();
    const std::string report = ports_.control().receive();
    EXPECT_TRUE(reportTypes(report).contains(senderReport));
    ASSERT_GE(report.size(), 28U);
    EXPECT_EQ(report.substr(4, 4), packet.substr(8, 4)) << "of the same sender";
    sender_.reset();
    bool saidGoodbye = false;
    for (std::string last = ports_.control().receive(1000); !last.empty();
         last = ports_.control().receive(1000))
        saidGoodbye = saidGoodbye || reportTypes(last).contains(goodbye);
    EXPECT_TRUE(saidGoodbye);
}

TEST_F(GuideVideoTest, StallsAfterItsPicturesAndContinues) {
    start(160, 120, 25, "stall=3");
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(nextPicture().empty());
    EXPECT_EQ(ports_.data().receive(500), "");
    faults_.set(FaultSet{});
    EXPECT_FALSE(nextPicture().empty());
}

TEST_F(GuideVideoTest, FreezesOnAKeyPicture) {
    start(160, 120, 25, "freeze=1");
    const std::string first = nextPicture();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(nextPicture(), first);
}

TEST(GuideAudio, SendsEachFrameInItsOwnPacket) {
    const UdpPortPair ports;
    const auto audio = startGuideAudio(localAddress, {localAddress, ports.port()});
    ASSERT_TRUE(audio);
    std::optional<std::uint32_t> last;
    for (int i = 0; i < 10; ++i) {
        const std::string packet = ports.data().receive();
        ASSERT_GT(packet.size(), rtpHeader + mpegHeader);
        EXPECT_EQ(byteAt(packet, 1) & 0x7F, 14);
        EXPECT_EQ(byteAt(packet, rtpHeader + mpegHeader), 0xFF) << "an MPEG audio frame";
        if (last) {
            EXPECT_EQ(timestampOf(packet) - *last, 2160U) << "24 ms at 90 kHz";
        }
        last = timestampOf(packet);
    }
}

TEST(GuideStreams, AnAddressThatIsNotOursGivesNoStream) {
    EXPECT_FALSE(startGuideAudio("192.0.2.1", {"127.0.0.1", 5000}));
}
