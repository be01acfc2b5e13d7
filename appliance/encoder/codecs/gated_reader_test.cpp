#include "appliance/encoder/codecs/gated_reader.h"

#include "appliance/encoder/pictures/drawn_sources.h"

#include <gtest/gtest.h>

namespace {

using Step = FrameGate::Step;

constexpr std::chrono::seconds patience(10);

class GatedReaderTest : public testing::Test {
protected:
    void setFaults(const std::string& list) {
        FaultSet set;
        ASSERT_EQ(set.add(list), "");
        faults_.set(set);
    }
    GatedReader::Turn next() { return reader_.next(patience).value(); }

    TestSource source_{"Name", 160, 120, 60, 1};
    CodecStream stream_{source_, {Codec::Mpeg4, 4, true, 0}, 160, 120};
    FaultSwitch faults_{FaultSet{}};
    GatedReader reader_{stream_, faults_};
};

} // namespace

TEST_F(GatedReaderTest, FreezeRepeatsTheLastKeyPictureWithNewTimes) {
    setFaults("freeze=6");
    AccessUnitPtr key;
    for (int i = 0; i < 6; ++i) {
        const GatedReader::Turn turn = next();
        EXPECT_EQ(turn.step, Step::Send);
        if (turn.unit->key)
            key = turn.unit;
    }
    EXPECT_EQ(key->number, 5U);
    std::int64_t time = key->time;
    for (int i = 0; i < 6; ++i) {
        const GatedReader::Turn turn = next();
        EXPECT_EQ(turn.step, Step::Repeat);
        EXPECT_EQ(turn.unit, key);
        EXPECT_GT(turn.time, time);
        time = turn.time;
    }
}

TEST_F(GatedReaderTest, StallHoldsUntilTheFaultEnds) {
    setFaults("stall=1");
    EXPECT_EQ(next().step, Step::Send);
    EXPECT_EQ(next().step, Step::Hold);
    setFaults("");
    EXPECT_EQ(next().step, Step::Send);
}

TEST_F(GatedReaderTest, CloseCutsAndRestartCountsAgain) {
    setFaults("close=1");
    EXPECT_EQ(next().step, Step::Send);
    EXPECT_EQ(next().step, Step::Cut);
    reader_.restart();
    EXPECT_EQ(next().step, Step::Send);
}
