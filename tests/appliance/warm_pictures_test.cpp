// What a person sees of warm sources: the pictures in real time, and each source warm when its turn comes.
#include "appliance/streams/kept_stream.h"
#include "appliance/streams/rtp/rtp_packet.h"
#include "tests/appliance/warm_fixture.h"
#include "tests/support/disturbed_host.h"
#include "tests/support/screen_picture.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <chrono>
#include <gmock/gmock.h>

namespace {

using appliance::eventually;
using appliance::fromEncoder;
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

namespace {

// The sequence numbers that a player gets from the keeper in four seconds.
std::vector<std::uint16_t> takenFromKeeper(const streams::StreamAddress& address) {
    std::vector<std::uint16_t> taken;
    const auto stream = streams::KeptStream::open(address, 1000);
    if (stream == nullptr)
        return taken;
    const std::int64_t until = gettimeusec() + 4 * second;
    stream->run({.video =
                     [&](std::string_view bytes) {
                         if (const auto packet = streams::readRtp(bytes))
                             taken.push_back(packet->sequence);
                         return gettimeusec() < until;
                     },
                 .sound = [](std::string_view) {},
                 .bytes = [](std::string_view) { return false; },
                 .picture = [](std::string_view) {},
                 .live = [] {}});
    return taken;
}

// Whether one of the lists has all of that, one after the other.
bool isPartOf(const std::vector<std::vector<std::uint16_t>>& lists, const std::vector<std::uint16_t>& part) {
    return std::ranges::any_of(lists,
                               [&](const auto& list) { return !std::ranges::search(list, part).empty(); });
}

} // namespace

// Lost packets are missing and swapped ones are swapped, as they came from the network; the player gets along with both.
TEST_F(Warm, ADisturbedNetworkReachesThePlayerAsItIs) {
    const std::string address = "127.0.9.1";
    add("rtsp-unicast", {"--codec", "h264", "--gop", "25", "--bitrate", "2000"}, {{"Address", address}});
    add("mjpeg");
    const scripted::DisturbedHost network(address, "127.0.1.1");
    start();
    detectAll();
    ASSERT_TRUE(keeps(0)) << gateway->log();
    const std::vector<std::uint16_t> taken = takenFromKeeper({.kind = streams::StreamAddress::Kind::rtsp,
                                                              .host = address,
                                                              .port = 554,
                                                              .tls = false,
                                                              .target = "/mpeg4/1/media.orv",
                                                              .transport = streams::RtspTransport::unicast});
    ASSERT_GT(taken.size(), 2U * scripted::DisturbedHost::lostEach);
    EXPECT_TRUE(isPartOf(network.sessions(), taken));
    int missing = 0;
    int swapped = 0;
    for (std::size_t i = 1; i < taken.size(); ++i) {
        const auto step = static_cast<std::int16_t>(taken[i] - taken[i - 1]);
        missing += step == 2 ? 1 : 0;
        swapped += step == -1 ? 1 : 0;
    }
    EXPECT_GT(missing, 0);
    EXPECT_GT(swapped, 0);
    const std::size_t before = lines(fromKeeper);
    decoder->ctl({"select", "0"});
    EXPECT_TRUE(decoder->showsMoving(0)) << decoder->log();
    EXPECT_EQ(lines(fromKeeper), before + 1);
    appliance::pause(std::chrono::seconds(4));
    EXPECT_TRUE(decoder->showsMoving(0)) << "it goes on after losses";
    EXPECT_EQ(lines(fromEncoder), 0U);
}
