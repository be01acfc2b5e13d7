#include "appliance/gateway/service/stream_status.h"

#include <gmock/gmock.h>

namespace gateway {
namespace {

using testing::Contains;
using testing::Key;
using testing::Not;
using testing::Pair;

CameraReport playing(std::uint64_t bytes, std::uint64_t pictures) {
    CameraReport report;
    report.open = true;
    report.info.video = TrackInfo{"H264", 96, 90000, "", ""};
    report.info.transport = "TCP";
    report.bytes = bytes;
    report.pictures = pictures;
    report.keyInterval = 1'960'000;
    report.size = streams::PictureSize{1920, 1080};
    return report;
}

TEST(StreamStatus, RatesAreThoseSinceTheReportBefore) {
    StreamStatus status;
    EXPECT_THAT(status.update(playing(1000, 10), 1'000'000), Not(Contains(Key("BitRate"))));
    const auto values = status.update(playing(1000 + 2'500'000, 10 + 124), 6'000'000);
    EXPECT_THAT(values, Contains(Pair("BitRate", "4000")));
    EXPECT_THAT(values, Contains(Pair("FrameRate", "24.8")));
    EXPECT_THAT(values, Contains(Pair("KeyInterval", "2")));
    EXPECT_THAT(values, Contains(Pair("Resolution", "1920x1080")));
    EXPECT_THAT(values, Contains(Pair("Codec", "H264")));
    EXPECT_THAT(values, Contains(Pair("Transport", "TCP")));
}

TEST(StreamStatus, WithoutAConnectionThereAreNoRatesAndTheRestStays) {
    StreamStatus status;
    status.update(playing(1000, 10), 1'000'000);
    const auto values = status.update({}, 2'000'000);
    EXPECT_THAT(values, testing::UnorderedElementsAre(Pair("BitRate", ""), Pair("FrameRate", "")));
    EXPECT_THAT(status.update(playing(2000, 20), 3'000'000), Not(Contains(Key("BitRate"))));
    EXPECT_THAT(status.update(playing(100, 1), 4'000'000), Not(Contains(Key("BitRate")))); // counted anew
}

TEST(StreamStatus, PicturesHaveNoKeyInterval) {
    CameraReport report;
    report.open = true;
    report.info.transport = "HTTP";
    StreamStatus status;
    const auto values = status.update(report, 1);
    EXPECT_THAT(values, Contains(Pair("Codec", "JPEG")));
    EXPECT_THAT(values, Contains(Pair("KeyInterval", "")));
    EXPECT_THAT(values, Not(Contains(Key("Resolution"))));
}

} // namespace
} // namespace gateway
