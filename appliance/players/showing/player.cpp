#include "appliance/players/showing/player.h"

#include "appliance/front/arguments.h"
#include "appliance/players/showing/codec_reason.h"
#include "appliance/players/showing/exit_code.h"
#include "appliance/players/showing/presenter.h"
#include "appliance/players/showing/stillness.h"
#include "appliance/players/showing/supervisor_link.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <thread>
#include <unistd.h>
#include <utility>

namespace player {
namespace {

// A leaving player whose last picture is not fresh waits until it has drawn the next one and announces itself right after
// that. So the next player takes the screen soon after a picture, instead of at any time between two. A picture is fresh
// for less than a display of 60 Hz needs to show another one.
// kept: announcing always at once would answer a little sooner, but the gap in the pictures would grow by the same (Motion
// JPEG of 25 pictures/s: median 27 instead of 1 ms). A fresh time of 5 ms made every second answer 10 to 30 ms later.
constexpr int freshDrawingMs = 12;
constexpr int drawingPatienceMs = 60;
constexpr std::chrono::milliseconds endSessionTime{200};
constexpr std::chrono::milliseconds endSoundTime{400};
constexpr int clearStatusMs = 200;
constexpr int stillnessCheckMs = 1000;

// What the other threads report to the main thread. They signal an eventfd, which wakes the main thread.
class Reports {
public:
    Reports() : signal_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    int descriptor() const { return signal_; }

    void firstPicture() {
        change([this] { firstPicture_ = true; });
    }
    void streamEnded(const std::string& reason) {
        change([&] {
            if (!streamEnd_)
                streamEnd_ = reason;
        });
    }
    void linkEnded() {
        change([this] { linkEnded_ = true; });
    }
    void waitingForRelease(std::int64_t since) {
        change([&] { waitingSince_ = since; });
    }

    // Each report is taken once.
    bool takeFirstPicture() {
        const std::lock_guard guard(lock_);
        return std::exchange(firstPicture_, false);
    }
    std::optional<std::string> takeStreamEnd() {
        const std::lock_guard guard(lock_);
        return std::exchange(streamEnd_, std::nullopt);
    }
    bool takeLinkEnd() {
        const std::lock_guard guard(lock_);
        return std::exchange(linkEnded_, false);
    }

    // Since when the player has been waiting for a release, on gettimeusec()'s clock; 0: it doesn't.
    std::int64_t waitingSince() const {
        const std::lock_guard guard(lock_);
        return waitingSince_;
    }
    void clearSignal() const {
        eventfd_t count = 0;
        eventfd_read(signal_, &count);
    }

private:
    template<class Change>
    void change(const Change& make) {
        const std::lock_guard guard(lock_);
        make();
        eventfd_write(signal_, 1);
    }
    const int signal_;
    mutable std::mutex lock_; // guards all that follows
    bool firstPicture_ = false;
    bool linkEnded_ = false;
    std::int64_t waitingSince_ = 0;
    std::optional<std::string> streamEnd_;
};

// Signals are read from a descriptor. They are blocked in every thread started later, so no handler ever runs.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        std::signal(number, SIG_DFL); // an ignored signal never reaches the descriptor
        sigaddset(&signals, number);
    }
    std::signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// Makes the kernel send SIGTERM when the supervisor dies. False when it died before this took effect.
bool dieWithParent() {
    const pid_t parent = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return getppid() == parent;
}

// Returns the time `limitMs` after `since`; INT64_MAX without a limit or without a start.
std::int64_t after(std::int64_t since, int limitMs) {
    return since == 0 || limitMs == 0 ? INT64_MAX : since + std::int64_t{1000} * limitMs;
}

// Runs the task, which may be empty, on its own thread. What is returned is ready when the task is done.
std::future<void> begin(std::function<void()> task) {
    std::promise<void> done;
    std::future<void> result = done.get_future();
    if (!task)
        done.set_value();
    else
        std::thread([task = std::move(task), done = std::move(done)]() mutable {
            task();
            done.set_value();
        }).detach();
    return result;
}

class Player {
public:
    Player(const PlayerOptions& options, int signals);
    [[noreturn]] void run(const StartStream& startStream);

private:
    [[noreturn]] void end(ExitCode code, const char* reason);
    void takeSignals();
    void takeReports();
    void checkTime();
    void checkStillness();
    int millisecondsToWait() const;
    std::int64_t pictureDeadline() const;
    std::int64_t releaseDeadline() const;
    LinkActions linkActions();

    const PlayerOptions& options_;
    const int signals_;
    const std::int64_t start_ = gettimeusec();
    Reports reports_;
    Presenter presenter_;
    SupervisorLink link_;
    Endings endings_;
    StillnessReport& stillness_;      // never destroyed: it has its own thread
    std::int64_t stillnessCheck_ = 0; // when the content is checked next
    bool pictured_ = false;           // the first picture was decoded
};

Player::Player(const PlayerOptions& options, int signals)
    : options_(options), signals_(signals),
      presenter_(options, screen::FrameStore(), [this] { reports_.firstPicture(); }), link_(linkActions()),
      stillness_(*new StillnessReport(options.source)) {}

LinkActions Player::linkActions() {
    return {.show = [this] { presenter_.show(); },
            .beforeLeaving = [this] { presenter_.waitForDrawing(freshDrawingMs, drawingPatienceMs); },
            .stop = [this] { presenter_.stop(); },
            .waiting = [this](std::int64_t since) { reports_.waitingForRelease(since); },
            .ended = [this](bool /*released*/) { reports_.linkEnded(); }};
}

void Player::run(const StartStream& startStream) {
    const StreamSink sink{[this](const screen::PictureView& picture) { presenter_.picture(picture); },
                          [this](const std::string& reason) { reports_.streamEnded(reason); },
                          [this] { return presenter_.showing(); }, [this] { presenter_.awaitShowing(); },
                          [this](const std::string& codec) {
                              if (!options_.alone)
                                  tellUndecodable(options_.source, codec);
                          }};
    if (!startStream(options_, sink, endings_))
        end(ExitCode::noPicture, "the stream can't be started");
    for (;;) {
        std::array<pollfd, 2> watched{{{signals_, POLLIN, 0}, {reports_.descriptor(), POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), millisecondsToWait()) < 0 && errno != EINTR)
            logmsg(3, "poll failed (errno=%d %s)", errno, std::strerror(errno));
        takeSignals();
        takeReports();
        checkTime();
        checkStillness();
    }
}

void Player::takeSignals() {
    signalfd_siginfo signal{};
    while (read(signals_, &signal, sizeof signal) == sizeof signal) {
        if (signal.ssi_signo != SIGHUP)
            end(ExitCode::asked, "asked to end");
        // Before the first picture the player has announced nothing, so no release would follow.
        if (options_.alone || !pictured_)
            end(ExitCode::asked, "asked to leave");
        link_.leave();
    }
}

void Player::takeReports() {
    reports_.clearSignal();
    if (reports_.takeLinkEnd())
        end(ExitCode::asked, "left");
    if (reports_.takeFirstPicture()) {
        pictured_ = true;
        if (options_.verbose)
            logmsg(7, "First picture after %lld ms", static_cast<long long>((gettimeusec() - start_) / 1000));
        if (options_.alone)
            presenter_.show();
        else {
            link_.start();
            clearUndecodable(options_.source);
        }
    }
    if (const auto reason = reports_.takeStreamEnd())
        end(pictured_ ? ExitCode::endOfStream : ExitCode::noPicture, reason->c_str());
}

std::int64_t Player::pictureDeadline() const {
    return after(pictured_ ? presenter_.lastPicture() : start_, options_.patienceMs);
}

std::int64_t Player::releaseDeadline() const {
    return after(reports_.waitingSince(), options_.releaseMs);
}

int Player::millisecondsToWait() const {
    std::int64_t until = std::min(pictureDeadline(), releaseDeadline());
    if (pictured_)
        until = std::min(until, stillnessCheck_);
    if (until == INT64_MAX)
        return -1;
    return static_cast<int>(std::clamp<std::int64_t>((until - gettimeusec() + 999) / 1000, 0, INT_MAX));
}

void Player::checkTime() {
    const std::int64_t now = gettimeusec();
    if (now >= releaseDeadline())
        end(ExitCode::noRelease, "not released from its barrier in time");
    if (now < pictureDeadline())
        return;
    if (pictured_)
        end(ExitCode::noNewPicture, "no new picture in time");
    end(ExitCode::noPicture, "no picture in time");
}

// Tells what is on the screen: a player that doesn't show yet leaves the status to the one that does.
void Player::checkStillness() {
    const std::int64_t now = gettimeusec();
    if (!pictured_ || now < stillnessCheck_)
        return;
    stillnessCheck_ = now + std::int64_t{1000} * stillnessCheckMs;
    const StillnessSettings settings = stillnessSettings();
    const int seconds = secondsStill(settings, presenter_.lastChange(), now);
    if (seconds > 0 && settings.endsPlayer)
        end(ExitCode::noNewPicture, "the picture stands still, and Player.EndWhenStill is \"yes\"");
    if (presenter_.showing())
        stillness_.tell(seconds);
}

void Player::end(ExitCode code, const char* reason) {
    if (options_.verbose || code == ExitCode::noPicture || code == ExitCode::noRelease)
        logmsg(6, "%s of source %d ends with %d: %s", programName(options_.kind), options_.source,
               static_cast<int>(code), reason);
    presenter_.stop();
    const auto start = std::chrono::steady_clock::now();
    const std::future<void> session = begin(endings_.session);
    const std::future<void> sound = begin(endings_.sound);
    stillness_.clear(clearStatusMs);
    session.wait_until(start + endSessionTime);
    sound.wait_until(start + endSoundTime);
    std::fflush(nullptr);
    _exit(static_cast<int>(code));
}

} // namespace

int runPlayer(Kind kind, int argc, char** argv, const StartStream& startStream) {
    const int signals = openSignals();
    front::Arguments arguments(argc, argv);
    static const ParsedOptions& parsed =
        *new ParsedOptions(parseOptions(kind, arguments.count(), arguments.values()));
    if (!parsed.options)
        return parsed.status;
    if (!dieWithParent())
        return static_cast<int>(ExitCode::asked);
    // Never destroyed: threads use it until the process ends.
    (new Player(*parsed.options, signals))->run(startStream);
}

} // namespace player
