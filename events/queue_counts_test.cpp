#include "events/queue_counts.h"

#include "events/event_queue.h"
#include "tests/fakes/fake_libcommon.h"

#include <gtest/gtest.h>

struct QueueCountsTest : testing::Test {
    QueueCountsTest() { fake::reset(); }
    void corrupt(int id, int value) { counts.currentInQueueValues_[id] = value; }

    QueueCounts counts;
};

TEST_F(QueueCountsTest, AnIdentifierWithoutAnEntryHasTheDefaultLimit) {
    EXPECT_EQ(defaultQueueLimit, 256);
    for (int i = 0; i < 256; ++i)
        EXPECT_TRUE(counts.countUp(EID_SELECT));
    EXPECT_FALSE(counts.countUp(EID_SELECT));
    EXPECT_EQ(counts.count(EID_SELECT), 256);
    EXPECT_TRUE(counts.countUp(EID_LOCK));
}

TEST_F(QueueCountsTest, ALimitMayBeOverwritten) {
    counts.setLimit(EID_ALARM, 1);
    EXPECT_TRUE(counts.countUp(EID_ALARM));
    EXPECT_FALSE(counts.countUp(EID_ALARM));
    counts.setLimit(EID_ALARM, 2);
    EXPECT_EQ(counts.limit(EID_ALARM), 2);
    EXPECT_TRUE(counts.countUp(EID_ALARM));
}

TEST_F(QueueCountsTest, ALimitOfZeroLetsNothingIn) {
    counts.setLimit(EID_ALARM, 0);
    EXPECT_FALSE(counts.countUp(EID_ALARM));
}

TEST_F(QueueCountsTest, CountingDownMakesRoomAgain) {
    counts.setLimit(EID_BUTTON, 2);
    counts.countUp(EID_BUTTON);
    counts.countUp(EID_BUTTON);
    counts.countDown(EID_BUTTON);
    EXPECT_EQ(counts.count(EID_BUTTON), 1);
    EXPECT_TRUE(counts.countUp(EID_BUTTON));
    counts.countDown(EID_BUTTON);
    counts.countDown(EID_BUTTON);
    EXPECT_EQ(counts.count(EID_BUTTON), 0);
    EXPECT_TRUE(fake::log.empty());
}

TEST_F(QueueCountsTest, ClearForgetsCountsAndKeepsLimits) {
    counts.setLimit(EID_ALARM, 1);
    counts.countUp(EID_ALARM);
    counts.clear();
    EXPECT_EQ(counts.count(EID_ALARM), 0);
    EXPECT_EQ(counts.limit(EID_ALARM), 1);
}

TEST_F(QueueCountsTest, AMissingCountIsLogged) {
    counts.countDown(EID_TIMEOUT);
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{3, "Could not find nbr of events in queue."}}));
    EXPECT_EQ(counts.count(EID_TIMEOUT), 0);
}

TEST_F(QueueCountsTest, ACountThatIsNotPositiveIsLoggedAndLeft) {
    corrupt(EID_TIMEOUT, 0);
    corrupt(EID_LOCK, -3);
    counts.countDown(EID_TIMEOUT);
    counts.countDown(EID_LOCK);
    EXPECT_EQ(fake::log, (std::vector<fake::LogLine>{{3, "Illegal value in currentInQueueValues:0"},
                                                     {3, "Illegal value in currentInQueueValues:-3"}}));
    EXPECT_EQ(counts.count(EID_LOCK), -3);
}
