// What a person sees of warm sources: the pictures in real time, and each source warm when its turn comes.
#include "tests/appliance/warm_fixture.h"
#include "tests/support/screen_picture.h"

#include <chrono>
#include <gmock/gmock.h>

namespace {

using appliance::eventually;
using appliance::fromKeeper;
using appliance::Seconds;
using appliance::Warm;
using testing::HasSubstr;

constexpr double rate = 25;                // pictures per second
constexpr std::int64_t second = 1'000'000; // of gettimeusec()
constexpr std::int64_t oldKeyMs = 2600;    // of four seconds: a fast-forward would show 65 pictures at once
constexpr std::int64_t oldestKeyMs = 3600; // leaves time for the selection
constexpr double mostAhead = 20;           // pictures that may come faster than the clock, on a busy machine
constexpr double mostBehind = 60;          // and later

struct Shown {
    std::int64_t time;
    int counter; // without its wrap at 65536: the tests are shorter
};

class WarmPictures : public Warm, public testing::WithParamInterface<std::vector<std::string>> {
protected:
    // Everything that is drawn of a source for that time, which begins with its first picture.
    std::vector<Shown> watch(int source, Seconds time) {
        std::vector<Shown> all;
        screen::Frame frame;
        std::uint64_t seen = decoder->screen().newestInfo().number;
        const auto inTime = [&] {
            return all.empty() ||
                   all.back().time - all.front().time < static_cast<std::int64_t>(time.count()) * second;
        };
        eventually([&] {
            seen = decoder->screen().wait(seen, 100);
            if (!decoder->screen().newest(frame) || frame.info.source != source)
                return false;
            const auto mark = screen::markIn(frame);
            if (mark && mark->source == source && (all.empty() || frame.info.time > all.back().time))
                all.push_back({frame.info.time, mark->counter});
            return !inTime();
        });
        return all;
    }
    // How many frames of a source were drawn in the first second after `from`.
    std::size_t drawnIn(int source, std::int64_t from, std::uint64_t after) {
        std::size_t count = 0;
        for (const screen::FrameInfo& info : decoder->screen().infosSince(after))
            count += info.source == source && info.time >= from && info.time < from + second ? 1 : 0;
        return count;
    }
};

} // namespace

// The newest key picture is seconds old when the source is selected. From the first picture on, the numbers in the pictures
// follow the clock: none of what came since the key picture is shown, neither at once nor faster.
TEST_P(WarmPictures, AreShownInRealTimeFromTheFirstOneOn) {
    // Large pictures: decoding all of them since the key picture takes longer than the switch.
    std::vector<std::string> more{"--gop", "100", "--fps", "25", "--width", "1280", "--height", "720"};
    more.insert(more.end(), GetParam().begin() + 1, GetParam().end());
    add(GetParam().front(), more);
    add("mjpeg");
    start();
    detectAll();
    const auto hasOldKey = [] {
        const auto one = report(0);
        return one && one->kept && one->keyAgeMs > oldKeyMs && one->keyAgeMs < oldestKeyMs;
    };
    ASSERT_TRUE(eventually(hasOldKey)) << gateway->log();
    const std::size_t before = lines(fromKeeper);
    const std::uint64_t lastOld = decoder->screen().newestInfo().number;
    decoder->ctl({"select", "0"});
    const std::vector<Shown> shown = watch(0, Seconds(3));
    ASSERT_GT(shown.size(), 10U) << decoder->log();
    EXPECT_EQ(lines(fromKeeper), before + 1);
    for (const Shown& one : shown) {
        const double passed = static_cast<double>(one.time - shown.front().time) / second * rate;
        const double ahead = one.counter - shown.front().counter - passed;
        EXPECT_LT(ahead, mostAhead) << (one.time - shown.front().time) / 1000 << " ms after the first one";
        EXPECT_GT(ahead, -mostBehind) << (one.time - shown.front().time) / 1000 << " ms after the first one";
    }
    EXPECT_LT(static_cast<double>(drawnIn(0, shown.front().time, lastOld)), rate + mostAhead);
}

INSTANTIATE_TEST_SUITE_P(Kinds, WarmPictures,
                         testing::Values(std::vector<std::string>{"rtsp-tcp", "--codec", "h264"},
                                         std::vector<std::string>{"rtsp-unicast", "--codec", "mpeg4"},
                                         std::vector<std::string>{"mpeg2"}),
                         [](const auto& instance) {
                             std::string name = instance.param.front();
                             std::erase(name, '-');
                             return name;
                         });

// The sequence shows each source for 12 seconds, and the next one is opened at most 8 seconds before its turn.
TEST_F(Warm, TheNextSourceOfTheSequenceIsOpenedBeforeItsTurn) {
    decoder->set("Decoder.SequenceMode", "auto");
    decoder->set("Warm.Sources", "next");
    for (int i = 0; i < 2; ++i)
        add("rtsp-tcp", {"--codec", "h264", "--gop", "50"}, {{"DisplayTime", "12"}});
    start();
    ASSERT_TRUE(decoder->showsMoving(0));
    ASSERT_TRUE(decoder->waitForSource(1)) << "both are detected after the first round";
    ASSERT_TRUE(decoder->showsMoving(1));
    ASSERT_TRUE(decoder->waitForSource(0));
    ASSERT_TRUE(decoder->showsMoving(0));
    EXPECT_TRUE(eventually([] { return !report(1); }, Seconds(3))) << "its turn is a long time away";
    ASSERT_TRUE(keeps(1)) << gateway->log();
    EXPECT_EQ(decoder->currentSource(), 0) << "it is opened before its turn";
    EXPECT_THAT(decoder->ctl({"sources"}).output, HasSubstr("warm: key picture "));
    const std::size_t before = lines(fromKeeper);
    ASSERT_TRUE(decoder->waitForSource(1));
    EXPECT_TRUE(decoder->showsMoving(1));
    EXPECT_EQ(lines(fromKeeper), before + 1) << decoder->log();
}
