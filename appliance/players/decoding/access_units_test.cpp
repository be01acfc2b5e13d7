#include "appliance/players/decoding/access_units.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace player {
namespace {

using streams::Encoding;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string code("\0\0\0\1", 4);

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values)
        text += static_cast<char>(value);
    return text;
}

class AccessUnitsTest : public testing::Test {
protected:
    void use(Encoding encoding, const std::string& fmtp = "") {
        units_ = std::make_unique<AccessUnits>(encoding, fmtp, [this](const std::string& unit, bool shown) {
            taken_.push_back(unit);
            shown_.push_back(shown);
        });
    }
    void packet(const std::string& payload, std::uint32_t time, bool marker, bool shown = true) {
        const std::string made = streams::makeRtp({.marker = marker,
                                                   .payloadType = 96,
                                                   .sequence = sequence_++,
                                                   .timestamp = time,
                                                   .payload = payload});
        units_->add(made, shown);
    }
    void lose() { ++sequence_; }

    std::unique_ptr<AccessUnits> units_;
    std::vector<std::string> taken_;
    std::vector<bool> shown_;
    std::uint16_t sequence_ = 65534; // the number wraps
};

const std::string idr = bytes({0x65, 1});
const std::string slice = bytes({0x41, 2});
const std::string sequenceSet = bytes({0x67, 3, 9});
const std::string pictureSet = bytes({0x68, 4, 9});

TEST_F(AccessUnitsTest, AUnitIsCompleteWithTheMarker) {
    use(Encoding::h264);
    packet(sequenceSet, 1, false);
    packet(pictureSet, 1, false);
    EXPECT_THAT(taken_, IsEmpty());
    packet(idr, 1, true);
    packet(slice, 2, true);
    EXPECT_THAT(taken_, ElementsAre(code + sequenceSet + code + pictureSet + code + idr, code + slice));
}

TEST_F(AccessUnitsTest, WithoutMarkersAUnitEndsWhenTheNextBegins) {
    use(Encoding::h264);
    packet(idr, 1, false);
    packet(idr, 1, false);
    EXPECT_THAT(taken_, IsEmpty());
    packet(slice, 2, false);
    EXPECT_THAT(taken_, ElementsAre(code + idr + code + idr));
}

TEST_F(AccessUnitsTest, NothingComesBeforeTheFirstKeyPicture) {
    use(Encoding::h264);
    packet(slice, 1, true);
    packet(slice, 2, true);
    packet(idr, 3, true);
    EXPECT_THAT(taken_, ElementsAre(code + idr));
}

TEST_F(AccessUnitsTest, AggregatesAndFragmentsOfH264) {
    use(Encoding::h264);
    packet(bytes({0x78, 0, 3}) + sequenceSet + bytes({0, 3}) + pictureSet, 1, false);
    packet(bytes({0x7c, 0x85, 10, 11}), 1, false);
    packet(bytes({0x7c, 0x05, 12}), 1, false);
    packet(bytes({0x7c, 0x45, 13}), 1, true);
    EXPECT_THAT(taken_,
                ElementsAre(code + sequenceSet + code + pictureSet + code + bytes({0x65, 10, 11, 12, 13})));
}

TEST_F(AccessUnitsTest, AggregatesAndFragmentsOfH265) {
    use(Encoding::h265);
    const std::string videoSet = bytes({0x40, 1, 9});
    packet(bytes({0x60, 1, 0, 3}) + videoSet, 1, false);
    packet(bytes({0x62, 1, 0x93, 10}), 1, false); // type 19, a key picture
    packet(bytes({0x62, 1, 0x53, 11}), 1, true);
    EXPECT_THAT(taken_, ElementsAre(code + videoSet + code + bytes({0x26, 1, 10, 11})));
}

TEST_F(AccessUnitsTest, Mpeg4IsJoinedAsItIs) {
    use(Encoding::mpeg4);
    const std::string head = bytes({0, 0, 1, 0xb6, 0x10});
    packet(bytes({0, 0, 1, 0xb6, 0x50}), 1, true);
    packet(head, 2, false);
    packet("more", 2, true);
    EXPECT_THAT(taken_, ElementsAre(head + "more"));
}

TEST_F(AccessUnitsTest, SetsOfTheDescriptionComeBeforeAKeyPictureWithoutSets) {
    use(Encoding::h264, "96 packetization-mode=1;sprop-parameter-sets=ZwMJ,aAQJ");
    packet(idr, 1, true);
    packet(slice, 2, true);
    packet(sequenceSet, 3, false);
    packet(idr, 3, true);
    EXPECT_THAT(taken_, ElementsAre(code + sequenceSet + code + pictureSet + code + idr, code + slice,
                                    code + sequenceSet + code + idr));
}

TEST_F(AccessUnitsTest, AfterALossH264WaitsForAKeyPicture) {
    use(Encoding::h264);
    packet(idr, 1, true);
    lose();
    packet(slice, 3, true);
    packet(slice, 4, true);
    packet(idr, 5, true);
    EXPECT_THAT(taken_, ElementsAre(code + idr, code + idr));
}

TEST_F(AccessUnitsTest, AfterALossOtherCodecsGoOnWithTheNextUnit) {
    use(Encoding::mpeg4);
    const std::string head = bytes({0, 0, 1, 0xb6, 0x10});
    packet(head, 1, true);
    packet("lost", 2, false);
    lose();
    packet("rest", 2, true);
    packet("next", 3, true);
    EXPECT_THAT(taken_, ElementsAre(head, "next"));
}

TEST_F(AccessUnitsTest, AFragmentWithoutItsBeginningIsDropped) {
    use(Encoding::h264);
    packet(bytes({0x7c, 0x05, 12}), 1, false);
    packet(bytes({0x7c, 0x45, 13}), 1, true);
    EXPECT_THAT(taken_, IsEmpty());
}

TEST_F(AccessUnitsTest, AUnitTellsWhetherItIsShown) {
    use(Encoding::h264);
    packet(idr, 1, true, false);
    packet(slice, 2, true, true);
    EXPECT_THAT(shown_, ElementsAre(false, true));
}

TEST_F(AccessUnitsTest, OddBytesDoNoHarm) {
    for (const Encoding encoding : {Encoding::h264, Encoding::h265, Encoding::mpeg4}) {
        use(encoding);
        for (int first = 0; first < 256; ++first)
            for (std::size_t length = 0; length < 6; ++length)
                packet(std::string(length, static_cast<char>(first)), static_cast<std::uint32_t>(first),
                       true);
        units_->add("", true);
        units_->add(std::string(12, '\0'), true);
    }
    use(Encoding::mpeg4);
    for (int i = 0; i < 200; ++i)
        packet(std::string(60'000, 'x'), 1, false);
    packet("x", 1, true);
    EXPECT_THAT(taken_, testing::Each(testing::SizeIs(testing::Lt(AccessUnits::unitLimit))));
}

} // namespace
} // namespace player
