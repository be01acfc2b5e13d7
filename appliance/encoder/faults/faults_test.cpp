#include "appliance/encoder/faults/faults.h"

#include <gtest/gtest.h>

TEST(FaultSet, ReadsNamesAndNumbersWithAnySeparator) {
    FaultSet faults;
    EXPECT_EQ(faults.add("stall=7, 404-view\nhash\tslow=0"), "");
    EXPECT_TRUE(faults.has(Fault::ViewNotFound));
    EXPECT_TRUE(faults.has(Fault::ViewHash));
    EXPECT_EQ(faults.number(Fault::Stall), 7);
    EXPECT_TRUE(faults.has(Fault::Slow));
    EXPECT_EQ(faults.number(Fault::Slow), 0);
    EXPECT_FALSE(faults.has(Fault::NotFound));
    EXPECT_EQ(faults.number(Fault::Close), 0);
}

TEST(FaultSet, UsesTheDefaultNumberIfNoneIsGiven) {
    FaultSet faults;
    EXPECT_EQ(faults.add("freeze close delay"), "");
    EXPECT_EQ(faults.number(Fault::Freeze), 25);
    EXPECT_EQ(faults.number(Fault::Close), 25);
    EXPECT_EQ(faults.number(Fault::Delay), 100);
}

TEST(FaultSet, AListWithAMistakeChangesNothing) {
    FaultSet faults;
    ASSERT_EQ(faults.add("silent"), "");
    const FaultSet before = faults;
    EXPECT_EQ(faults.add("404 nonsense"), "no fault is named 'nonsense'");
    EXPECT_EQ(faults.add("404=3"), "fault '404' takes no number");
    for (const char* bad :
         {"401 stall=", "stall=x", "stall=-1", "stall=1000001", "stall=5x", "stall=99999999999"})
        EXPECT_NE(faults.add(bad), "") << bad;
    EXPECT_EQ(faults, before);
}

TEST(FaultSet, ItsTextCanBeReadBack) {
    FaultSet faults;
    ASSERT_EQ(faults.add("endless-headers huge garbage refuse 401 401-view stall=3 freeze=4 close=5 slow=6 "
                         "delay=8 wrong-cseq no-session "
                         "truncated=9 early-data close-after=2 no-rtp no-rtcp"),
              "");
    FaultSet again;
    EXPECT_EQ(again.add(faults.text()), "");
    EXPECT_EQ(again, faults);
    EXPECT_EQ(FaultSet{}.text(), "");
    EXPECT_EQ(FaultSet{}.add("  \n"), "");
}

TEST(FaultSwitch, CallsItsListenerAfterEveryChange) {
    FaultSwitch faults{FaultSet{}};
    std::string heard;
    faults.onChange([&](const FaultSet& now) { heard += now.text() + ";"; });
    FaultSet some;
    ASSERT_EQ(some.add("silent"), "");
    faults.set(some);
    EXPECT_EQ(faults.current(), some);
    faults.set(FaultSet{});
    EXPECT_EQ(heard, "silent;;");
}
