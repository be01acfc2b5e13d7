#include "appliance/gateway/serving/player_connection.h"

#include <libcommon/clock.h>

#include <optional>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::milliseconds lookTime(2000);
constexpr std::int64_t stuckUs = 15'000'000; // the other side takes nothing
constexpr std::int64_t idleUs = 65'000'000;  // it neither plays nor asks
constexpr std::int64_t headUs = 10'000'000;  // for a whole request

} // namespace

PlayerConnection::PlayerConnection(EventLoop& loop, Cameras& cameras, int fd, std::function<void()> ended)
    : loop_(loop), ended_(std::move(ended)),
      socket_(
          loop, fd, [this](std::string_view bytes) { received(bytes); }, [this] { end(); }),
      watched_(cameras, [this] { takeRequestsSoon(); }),
      http_(cameras, socket_, watched_, [this] { endSoon(); }),
      rtsp_(cameras, socket_, watched_, [this] { endSoon(); }) {
    watchTime();
}

PlayerConnection::~PlayerConnection() {
    *alive_ = false;
    loop_.cancel(timer_);
}

void PlayerConnection::received(std::string_view bytes) {
    if (!reader_.add(bytes))
        return end(); // one who sends without reading the answers gets no more of them
    takeRequests();
}

void PlayerConnection::takeRequests() {
    std::string mistake;
    while (!over_ && !watched_.isAsking() && !socket_.endsAfterSending() && mistake.empty()) {
        const std::optional<Request> request = reader_.next(mistake);
        if (!mistake.empty())
            return http_.refuse(mistake);
        if (!request)
            return;
        if (request->protocol == "RTSP")
            rtsp_.serve(*request);
        else
            http_.serve(*request);
    }
}

// Requests that came while a camera was asked.
void PlayerConnection::takeRequestsSoon() {
    loop_.later([this, alive = alive_] {
        if (!*alive || over_)
            return;
        takeRequests();
        socket_.flush();
    });
}

void PlayerConnection::watchTime() {
    timer_ = loop_.after(lookTime, [this] {
        const std::int64_t quiet = gettimeusec() - socket_.lastProgress();
        const bool used = watched_.isWatching() || watched_.isAsking();
        const bool stuck = socket_.waiting() > 0 && quiet > stuckUs;
        const bool halfAsked = reader_.isInside() && !used && quiet > headUs;
        const bool idle = !used && quiet > idleUs;
        if (stuck || halfAsked || idle)
            return end();
        watchTime();
    });
}

void PlayerConnection::endSoon() {
    loop_.later([this, alive = alive_] {
        if (*alive)
            end();
    });
}

void PlayerConnection::end() {
    if (std::exchange(over_, true))
        return;
    watched_.stop();
    socket_.stop();
    loop_.cancel(timer_);
    ended_();
}

} // namespace gateway
