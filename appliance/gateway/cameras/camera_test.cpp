// A camera's sessions fail, and its viewers stay or go. Sessions, the loop and the clock are fakes.
#include "appliance/gateway/cameras/camera.h"

#include "appliance/gateway/cameras/session.h"

#include <libcommon/clock.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace {

using gateway::Delivery;
using gateway::Failure;
using gateway::Fault;

struct OpenedSession {
    Delivery delivery;
    gateway::SessionEvents events;
};

std::vector<OpenedSession> sessions; // all that were opened, the newest last
std::int64_t clockUs = 1'000'000'000'000;

class FakeSession : public gateway::CameraSession {
public:
    FakeSession(Delivery delivery, gateway::SessionEvents events)
        : delivery_(delivery), events_(std::move(events)) {}
    void open() override { sessions.push_back({delivery_, events_}); }

private:
    Delivery delivery_;
    gateway::SessionEvents events_;
};

} // namespace

std::int64_t gettimeusec() {
    return clockUs;
}

namespace gateway {

std::unique_ptr<CameraSession> makeSession(EventLoop& /*loop*/, Transfers& /*transfers*/,
                                           const CameraUrl& /*url*/, Delivery delivery,
                                           const SessionTimes& /*times*/, const SessionEvents& events) {
    return std::make_unique<FakeSession>(delivery, events);
}

// A loop without descriptors. run() calls its next timer, whose delay passes at once.
EventLoop::EventLoop() : epoll_(-1), wake_(-1) {}
EventLoop::~EventLoop() = default;
void EventLoop::watch(int /*fd*/, std::uint32_t /*events*/, Ready /*ready*/) {}
void EventLoop::change(int /*fd*/, std::uint32_t /*events*/) {}
void EventLoop::forget(int /*fd*/) {}
void EventLoop::later(std::function<void()> what) {
    posted_.push_back(std::move(what));
}
EventLoop::Timer EventLoop::after(std::chrono::milliseconds delay, std::function<void()> what) {
    const Clock::time_point time(std::chrono::microseconds(clockUs) + delay);
    const Timer timer = next_++;
    timers_[{time, timer}] = std::move(what);
    times_[timer] = time;
    return timer;
}
void EventLoop::cancel(Timer& timer) {
    if (const auto found = times_.find(timer); found != times_.end()) {
        timers_.erase({found->second, timer});
        times_.erase(found);
    }
    timer = 0;
}
void EventLoop::run() {
    posted_.clear();
    if (timers_.empty())
        return;
    const auto [key, what] = *timers_.begin();
    timers_.erase(timers_.begin());
    times_.erase(key.second);
    clockUs = std::max<std::int64_t>(
        clockUs, std::chrono::duration_cast<std::chrono::microseconds>(key.first.time_since_epoch()).count());
    what();
}

namespace {

const Failure silent{Fault::silence, "the camera has stopped sending"};
const Failure nothingOverUdp{Fault::noPackets, "the camera sends nothing over UDP"};
const Failure refused{Fault::refused, "the camera refuses connections"};
const Failure wrongPath{Fault::wrongPath, "the camera has no stream at this path"};

class CameraTest : public testing::Test {
protected:
    CameraTest() {
        sessions.clear();
        EXPECT_EQ(readCameraUrl("rtsp://camera/live", settings_.url), "");
        camera_.emplace(loop_, transfers_, settings_, SessionTimes{}, [](const Camera&) {});
    }

    void openSession() {
        sessions.back().events.opened(
            {.video = TrackInfo{.encodingName = "H264", .payloadType = 96, .rtpmap = {}, .fmtp = {}},
             .sound = std::nullopt,
             .transport = "UDP"});
    }
    void endSession(const Failure& failure) { sessions.back().events.ended(failure); }
    // A viewer watches over UDP.
    void watch() {
        camera_->ask([](const StreamInfo&, const Failure&) {});
        openSession();
        ASSERT_NE(camera_->join({.packet = [](Track, const streams::Packet&, bool) {},
                                 .picture = [](const streams::Packet&) {},
                                 .flush = [] {},
                                 .ended = [this](const Failure& failure) { gone_ = failure.text; }}),
                  0U);
    }
    // Lets the pause before the next attempt pass.
    void untilNextSession() {
        const std::size_t before = sessions.size();
        for (int i = 0; i < 10 && sessions.size() == before; ++i)
            loop_.run();
        ASSERT_EQ(sessions.size(), before + 1);
    }

    CameraSettings settings_{
        .number = 1, .name = "Yard", .mistake = {}, .url = {}, .transport = Transport::automatic};
    EventLoop loop_;
    Transfers transfers_{loop_};
    std::optional<Camera> camera_;
    std::string gone_; // why the viewer had to go; "": it is there
};

TEST_F(CameraTest, AViewerStaysWhileUdpBreaksAndTcpTakesOver) {
    watch();
    ASSERT_EQ(sessions.back().delivery, Delivery::udp);
    endSession(silent);
    untilNextSession();
    EXPECT_EQ(sessions.back().delivery, Delivery::udp);
    endSession(nothingOverUdp); // the firewall lets only TCP through by now
    ASSERT_EQ(sessions.size(), 3U) << "tried at once";
    EXPECT_EQ(sessions.back().delivery, Delivery::tcp);
    EXPECT_EQ(gone_, "");
    openSession();
    EXPECT_EQ(gone_, "");
    EXPECT_TRUE(camera_->report().open);
    EXPECT_TRUE(camera_->isWatched());
}

TEST_F(CameraTest, UdpThatBreaksWhileItIsWatchedIsReplacedAtOnce) {
    watch();
    endSession(nothingOverUdp);
    ASSERT_EQ(sessions.size(), 2U);
    EXPECT_EQ(sessions.back().delivery, Delivery::tcp);
    endSession(refused); // it restarts, too
    EXPECT_EQ(gone_, "") << "the break was a moment ago";
    untilNextSession();
    openSession();
    EXPECT_EQ(sessions.back().delivery, Delivery::tcp);
    EXPECT_EQ(gone_, "");
}

TEST_F(CameraTest, AViewerGoesWhenTheBreakLastsTooLong) {
    watch();
    endSession(nothingOverUdp);
    for (int i = 0; i < 10 && gone_.empty(); ++i) {
        endSession(refused);
        if (gone_.empty())
            untilNextSession();
    }
    EXPECT_EQ(gone_, refused.text);
    EXPECT_GE(sessions.size(), 3U);
}

TEST_F(CameraTest, AViewerGoesAtOnceWhenTheCameraSaysNo) {
    watch();
    endSession(nothingOverUdp);
    endSession(wrongPath);
    EXPECT_EQ(gone_, wrongPath.text);
}

// A long time after a break that is over, a new break gives the viewer its time again.
TEST_F(CameraTest, EachBreakHasItsOwnTime) {
    watch();
    endSession(nothingOverUdp);
    openSession();
    clockUs += 3'600'000'000;
    endSession(silent);
    untilNextSession();
    endSession(refused);
    EXPECT_EQ(gone_, "");
}

} // namespace
} // namespace gateway
