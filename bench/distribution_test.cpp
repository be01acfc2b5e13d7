#include "bench/chart.h"
#include "bench/distribution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using bench::Distribution;

Distribution of(std::initializer_list<double> values) {
    Distribution distribution;
    for (const double value : values)
        distribution.add(value);
    return distribution;
}

TEST(Distribution, IsZeroWithoutSamples) {
    EXPECT_EQ(Distribution().median(), 0);
    EXPECT_EQ(Distribution().worst(), 0);
}

TEST(Distribution, PercentilesAreSamplesByNearestRank) {
    const Distribution five = of({30, 10, 50, 20, 40});
    EXPECT_EQ(five.percentile(0), 10);
    EXPECT_EQ(five.median(), 30);
    EXPECT_EQ(five.percentile(80), 40);
    EXPECT_EQ(five.percentile(81), 50);
    EXPECT_EQ(five.worst(), 50);
    EXPECT_EQ(of({1, 2}).median(), 1);
}

TEST(Distribution, SummaryNamesTheUnit) {
    EXPECT_EQ(of({1, 2, 3}).summary("ms"), "n 3  min 1.0  median 2.0  p90 3.0  p99 3.0  max 3.0 ms");
}

TEST(Distribution, HistogramCountsEachClass) {
    const std::string text = histogram(of({1, 2, 7}), 5, "ms");
    EXPECT_THAT(text, testing::HasSubstr("0.0 to    5.0 ms    2 ##"));
    EXPECT_THAT(text, testing::HasSubstr("5.0 to   10.0 ms    1 ##"));
}

TEST(Chart, HasADotForEachSampleAndTheMedian) {
    const std::string text = bench::stripChart("Gaps", "ms", {{"ours", of({10, 20, 30})}});
    std::size_t dots = 0;
    for (std::size_t at = text.find("<circle"); at != std::string::npos; at = text.find("<circle", at + 1))
        ++dots;
    EXPECT_EQ(dots, 3U);
    EXPECT_THAT(text, testing::HasSubstr("median 20, worst 30"));
    EXPECT_THAT(text, testing::HasSubstr("</svg>"));
}

} // namespace
