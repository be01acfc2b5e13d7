// The rendezvous over an event queue that fails.
#include "barrier/master_barrier.h"

#include "events/event_queue.h"
#include "tests/fakes/fake_barrier_table.h"

#include <gtest/gtest.h>

namespace {

std::vector<SelectionWord> askedWith;

} // namespace

int takeEvent(Event*, const SelectionWord* words, std::size_t count, bool wait) {
    EXPECT_TRUE(wait);
    askedWith.assign(words, words + count);
    return -2;
}

TEST(MasterBarrierWait, AFailedWaitForAnEventEndsTheRendezvous) {
    fake::reset();
    EXPECT_EQ(masterBarrier(1, 1, 700001), -1);
    ASSERT_EQ(askedWith.size(), 3U);
    EXPECT_EQ(askedWith[0] & 0xffffU, 2U);
    EXPECT_EQ(askedWith[1] & 0xffffU, 7U);
    EXPECT_EQ(askedWith[2], 0x2ffffU);
    EXPECT_TRUE(fake::sentEvents.empty());
    EXPECT_TRUE(fake::log.empty());
}
