#include "appliance/panel/state/switch_times.h"

#include <gtest/gtest.h>

namespace panel {
namespace {

using Kind = SwitchEvent::Kind;

constexpr std::int64_t second = 1'000'000;

// Frames with consecutive numbers, 40 ms apart, from that number and time on.
std::vector<screen::FrameInfo> frames(int count, std::uint64_t number, std::int64_t time, int pid,
                                      int source) {
    std::vector<screen::FrameInfo> infos;
    for (int i = 0; i < count; ++i)
        infos.push_back({number + static_cast<std::uint64_t>(i), time + i * 40'000, pid, source});
    return infos;
}

std::vector<Kind> kinds(const std::vector<SwitchEvent>& events) {
    std::vector<Kind> result;
    for (const SwitchEvent& event : events)
        result.push_back(event.kind);
    return result;
}

TEST(SwitchTimes, TheFirstFrameStartsItsSource) {
    SwitchTimes times;
    EXPECT_EQ(times.source(), -1);
    EXPECT_EQ(kinds(times.add(frames(3, 1, second, 10, 2))), std::vector{Kind::Start});
    EXPECT_EQ(times.shownSince(), second);
    EXPECT_EQ(times.source(), 2);
    EXPECT_EQ(times.seen(), 3U);
}

TEST(SwitchTimes, MeasuresGapAndAnswer) {
    SwitchTimes times;
    times.add(frames(3, 1, second, 10, 0)); // the last one at 1.08 s
    times.selected(1, second + 100'000);
    const std::vector<SwitchEvent> events = times.add(frames(2, 4, second + 200'000, 11, 1));
    ASSERT_EQ(kinds(events), (std::vector{Kind::Start, Kind::Gap, Kind::Answered}));
    EXPECT_NEAR(events[1].seconds, 0.12, 1e-9);
    EXPECT_NEAR(events[2].seconds, 0.1, 1e-9);
    EXPECT_EQ(events[2].source, 1);
    EXPECT_TRUE(times.add(frames(2, 6, second + 280'000, 11, 1)).empty());
}

TEST(SwitchTimes, ASelectionOfWhatShowsHasNoAnswer) {
    SwitchTimes times;
    times.add(frames(3, 1, second, 10, 0));
    times.selected(0, 2 * second);
    EXPECT_TRUE(times.add(frames(1, 4, second + 120'000, 10, 0)).empty());
}

TEST(SwitchTimes, FramesFromBeforeTheSelectionAreNotItsAnswer) {
    SwitchTimes times;
    times.add(frames(1, 1, second, 10, 0));
    times.selected(1, 3 * second);
    EXPECT_EQ(kinds(times.add(frames(1, 2, 2 * second, 11, 1))), (std::vector{Kind::Start, Kind::Gap}));
    EXPECT_EQ(kinds(times.add(frames(1, 3, 3 * second + 1, 11, 1))), std::vector{Kind::Answered});
}

TEST(SwitchTimes, ALateFrameIsNoAnswer) {
    SwitchTimes times;
    times.selected(1, second);
    EXPECT_EQ(kinds(times.add(frames(1, 1, second + SwitchTimes::longestUs + 1, 11, 1))),
              std::vector{Kind::Start});
    EXPECT_TRUE(times.add(frames(1, 2, second + SwitchTimes::longestUs + 2, 11, 1)).empty());
}

TEST(SwitchTimes, AnotherPlayerOfTheSameSourceIsARestart) {
    SwitchTimes times;
    times.add(frames(1, 1, second, 10, 0));
    EXPECT_EQ(kinds(times.add(frames(1, 2, 9 * second, 11, 0))), std::vector{Kind::Restart});
    EXPECT_EQ(times.shownSince(), second);
}

TEST(SwitchTimes, APauseOfTheSamePlayerIsAStall) {
    SwitchTimes times;
    times.add(frames(1, 1, second, 10, 0));
    const std::vector<SwitchEvent> events = times.add(frames(1, 2, 4 * second, 10, 0));
    ASSERT_EQ(kinds(events), std::vector{Kind::Stall});
    EXPECT_NEAR(events[0].seconds, 3, 1e-9);
}

TEST(SwitchTimes, NothingIsMeasuredAcrossAHole) {
    SwitchTimes times;
    times.add(frames(1, 1, second, 10, 0));
    EXPECT_TRUE(times.add(frames(1, 9, 4 * second, 10, 0)).empty());
    EXPECT_EQ(kinds(times.add(frames(1, 20, 5 * second, 11, 1))), std::vector{Kind::Start});
}

TEST(SwitchTimes, FramesThatWereSeenArePassedOver) {
    SwitchTimes times;
    times.add(frames(3, 1, second, 10, 0));
    EXPECT_TRUE(times.add(frames(3, 1, second, 10, 0)).empty());
}

TEST(SwitchTimes, FollowsANewStore) {
    SwitchTimes times;
    times.add(frames(3, 100, second, 10, 0));
    EXPECT_EQ(kinds(times.add(frames(1, 1, 2 * second, 11, 3))), std::vector{Kind::Start});
    EXPECT_EQ(times.source(), 3);
}

} // namespace
} // namespace panel
