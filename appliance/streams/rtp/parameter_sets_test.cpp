#include "appliance/streams/rtp/parameter_sets.h"

#include "appliance/streams/rtp/test_packets.h"

#include <gmock/gmock.h>
#include <string>

namespace streams {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

} // namespace
} // namespace streams
