#include "appliance/players/player.h"

#include "appliance/players/exit_code.h"
#include "appliance/players/presenter.h"
#include "appliance/players/supervisor_link.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
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

// How long the old picture may be kept moving for the sake of leaving right after one of its pictures: the
// new player then follows within a few milliseconds, instead of anywhere in the pause between two pictures.
constexpr int freshDrawingMs = 5;
constexpr int drawingPatienceMs = 60;
constexpr int partingTimeMs = 200;

// What other threads tell the main thread; they ring, it looks.
class News {
public:
    News() : bell_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    int bell() const { return bell_; }

    void tellFirstPicture() {
        change([this] { firstPicture_ = true; });
    }
    void tellEnd(const std::string& reason) {
        change([&] {
            if (!streamEnd_)
                streamEnd_ = reason;
        });
    }
    void tellLinkEnded() {
        change([this] { linkEnded_ = true; });
    }

    // Each tells its news once.
    bool takeFirstPicture() {
        const std::lock_guard guard(lock_);
        return std::exchange(firstPicture_, false);
    }
    std::optional<std::string> takeEnd() {
        const std::lock_guard guard(lock_);
        return std::exchange(streamEnd_, std::nullopt);
    }
    bool takeLinkEnded() {
        const std::lock_guard guard(lock_);
        return std::exchange(linkEnded_, false);
    }
    void hush() const {
        eventfd_t count = 0;
        eventfd_read(bell_, &count);
    }

private:
    template<class Change>
    void change(const Change& make) {
        const std::lock_guard guard(lock_);
        make();
        eventfd_write(bell_, 1);
    }
    const int bell_;
    std::mutex lock_;
    bool firstPicture_ = false;
    bool linkEnded_ = false;
    std::optional<std::string> streamEnd_;
};

// Signals are taken from a descriptor: no handler ever runs, and every thread started later has them blocked.
int openSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) {
        std::signal(number, SIG_DFL); // one that is ignored would not come
        sigaddset(&signals, number);
    }
    std::signal(SIGPIPE, SIG_IGN);
    sigprocmask(SIG_BLOCK, &signals, nullptr);
    return signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
}

// The kernel sends SIGTERM when the supervisor dies. False when it was dead before that could be asked for.
bool dieWithParent() {
    const pid_t parent = getppid();
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    return getppid() == parent;
}

class Player {
public:
    Player(const PlayerOptions& options, int signals);
    [[noreturn]] void run(const StartStream& startStream);

private:
    [[noreturn]] void end(ExitCode code, const char* reason);
    void takeSignals();
    void takeNews();
    void checkTime();
    int millisecondsToWait() const;
    std::int64_t deadline() const;
    LinkActions linkActions();

    const PlayerOptions& options_;
    const int signals_;
    const std::int64_t start_ = gettimeusec();
    News news_;
    Presenter presenter_;
    SupervisorLink link_;
    PartFromEncoder part_;
    bool pictured_ = false; // a first picture came
};

Player::Player(const PlayerOptions& options, int signals)
    : options_(options), signals_(signals),
      presenter_(options, screen::FrameStore(), [this] { news_.tellFirstPicture(); }), link_(linkActions()) {}

LinkActions Player::linkActions() {
    return {.show = [this] { presenter_.show(); },
            .beforeLeaving = [this] { presenter_.waitForDrawing(freshDrawingMs, drawingPatienceMs); },
            .stop = [this] { presenter_.stop(); },
            .ended = [this](bool /*released*/) { news_.tellLinkEnded(); }};
}

void Player::run(const StartStream& startStream) {
    const StreamSink sink{[this](GstSample* sample) { presenter_.picture(sample); },
                          [this](const std::string& reason) { news_.tellEnd(reason); },
                          [this] { return presenter_.showing(); }, [this] { presenter_.awaitShowing(); }};
    if (!startStream(options_, sink, part_))
        end(ExitCode::noPicture, "the stream can't be started");
    for (;;) {
        std::array<pollfd, 2> watched{{{signals_, POLLIN, 0}, {news_.bell(), POLLIN, 0}}};
        if (poll(watched.data(), watched.size(), millisecondsToWait()) < 0 && errno != EINTR)
            logmsg(3, "poll failed (errno=%d %s)", errno, std::strerror(errno));
        takeSignals();
        takeNews();
        checkTime();
    }
}

void Player::takeSignals() {
    signalfd_siginfo signal{};
    while (read(signals_, &signal, sizeof signal) == sizeof signal) {
        if (signal.ssi_signo != SIGHUP)
            end(ExitCode::asked, "asked to end");
        // Before the first picture the supervisor does not know us yet: nobody would release us.
        if (options_.alone || !pictured_)
            end(ExitCode::asked, "asked to leave");
        link_.leave();
    }
}

void Player::takeNews() {
    news_.hush();
    if (news_.takeLinkEnded())
        end(ExitCode::asked, "left");
    if (news_.takeFirstPicture()) {
        pictured_ = true;
        if (options_.verbose)
            logmsg(7, "First picture after %lld ms", static_cast<long long>((gettimeusec() - start_) / 1000));
        if (options_.alone)
            presenter_.show();
        else
            link_.start();
    }
    if (const auto reason = news_.takeEnd())
        end(pictured_ ? ExitCode::endOfStream : ExitCode::noPicture, reason->c_str());
}

std::int64_t Player::deadline() const {
    if (options_.patienceMs == 0)
        return INT64_MAX;
    return (pictured_ ? presenter_.lastChange() : start_) + std::int64_t{1000} * options_.patienceMs;
}

int Player::millisecondsToWait() const {
    const std::int64_t until = deadline();
    if (until == INT64_MAX)
        return -1;
    return static_cast<int>(std::clamp<std::int64_t>((until - gettimeusec() + 999) / 1000, 0, INT_MAX));
}

void Player::checkTime() {
    if (gettimeusec() < deadline())
        return;
    if (pictured_)
        end(ExitCode::stoodStill, "the picture stands still");
    end(ExitCode::noPicture, "no picture in time");
}

void Player::end(ExitCode code, const char* reason) {
    if (options_.verbose || code == ExitCode::noPicture)
        logmsg(6, "%s of source %d ends with %d: %s", programName(options_.kind), options_.source,
               static_cast<int>(code), reason);
    presenter_.stop();
    if (part_) {
        News parted;
        std::thread([&] {
            part_();
            parted.tellLinkEnded();
        }).detach();
        pollfd done{parted.bell(), POLLIN, 0};
        poll(&done, 1, partingTimeMs);
    }
    std::fflush(nullptr);
    _exit(static_cast<int>(code));
}

} // namespace

int runPlayer(Kind kind, int argc, char** argv, const StartStream& startStream) {
    const int signals = openSignals();
    static const ParsedOptions& parsed = *new ParsedOptions(parseOptions(kind, argc, argv));
    if (!parsed.options)
        return parsed.status;
    if (!dieWithParent())
        return static_cast<int>(ExitCode::asked);
    // Never destroyed: threads use it until the process is gone.
    (new Player(*parsed.options, signals))->run(startStream);
}

} // namespace player
