#include "appliance/operating/source_steps.h"

#include "appliance/operating/operating_fixture.h"
#include "appliance/operating/refused.h"

#include <gmock/gmock.h>

namespace {

using SourceSteps = OperatingTest;

const std::vector<ListedSource> some{{"A", true}, {"B", false}, {"C", true}, {"D", true}};

TEST(StepFrom, SkipsSourcesThatAreNotInTheMode) {
    EXPECT_EQ(stepFrom(0, 1, some), 2);
    EXPECT_EQ(stepFrom(2, -1, some), 0);
    EXPECT_EQ(stepFrom(1, 1, some), 2) << "from one that was selected by its number";
}

TEST(StepFrom, GoesOnAtTheOtherEnd) {
    EXPECT_EQ(stepFrom(3, 1, some), 0);
    EXPECT_EQ(stepFrom(0, -1, some), 3);
}

TEST(StepFrom, BeginsAtAnEndWithoutACurrentSource) {
    EXPECT_EQ(stepFrom(-1, 1, some), 0);
    EXPECT_EQ(stepFrom(-1, -1, some), 3);
    EXPECT_EQ(stepFrom(99, 1, some), 0) << "the configuration became shorter";
}

TEST(StepFrom, FindsNothingWhereNothingIsEnabled) {
    EXPECT_EQ(stepFrom(0, 1, {}), -1);
    EXPECT_EQ(stepFrom(0, 1, {{"A", false}, {"B", false}}), -1);
    EXPECT_EQ(stepFrom(0, 1, {{"A", true}}), 0) << "the only one";
}

TEST_F(SourceSteps, TheModeDecidesWhatIsReached) {
    const std::string sources = "[Encoder.A]\nAddress = 127.0.0.1\nAutoEnabled = yes\nManualEnabled = no\n"
                                "[Encoder.B]\nAddress = 127.0.0.2\nAutoEnabled = no\nManualEnabled = yes\n"
                                "[Encoder.C]\nAutoEnabled = yes\nManualEnabled = yes\n";
    for (const bool manual : {false, true}) {
        configure(std::string("[Decoder]\nSequenceMode = ") + (manual ? "manual\n" : "auto\n") + sources);
        const std::vector<ListedSource> listed = listSources();
        ASSERT_EQ(listed.size(), 3U);
        EXPECT_EQ(listed[0].name, "A");
        EXPECT_EQ(listed[0].inMode, !manual);
        EXPECT_EQ(listed[1].inMode, manual);
        EXPECT_FALSE(listed[2].inMode) << "it has no address";
    }
}

TEST_F(SourceSteps, NoSourceShowsAtFirst) {
    EXPECT_EQ(currentSource(), -1);
}

TEST_F(SourceSteps, AreRefusedWithoutADecoder) {
    EXPECT_THROW(selectNeighbour(1), Refused);
    EXPECT_THROW(selectByNumber(0), Refused);
}

} // namespace
