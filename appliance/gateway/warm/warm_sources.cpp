#include "appliance/gateway/warm/warm_sources.h"

#include "appliance/gateway/warm/camera_feed.h"
#include "appliance/gateway/warm/encoder_feed.h"
#include "appliance/streams/kept_status.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace gateway {
namespace {

constexpr std::chrono::seconds lookTime(1);
constexpr std::chrono::seconds retryTime(5);
constexpr std::chrono::milliseconds endTime(300);
// A source that was next a moment ago often is so again.
constexpr std::int64_t lingerUs = 3'000'000;

// Only this user's programs, and those of root, which can read everything anyway.
bool mayConnect(int fd) {
    ucred peer{};
    socklen_t length = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
           (peer.uid == geteuid() || peer.uid == 0);
}

std::string indicesText(const std::vector<int>& indices) {
    std::string text;
    for (const int index : indices)
        text += (text.empty() ? "" : ",") + std::to_string(index);
    return text;
}

} // namespace

WarmSources::WarmSources(EventLoop& loop, Cameras& cameras)
    : loop_(loop), cameras_(cameras), path_(streams::keptSocketPath()) {}

WarmSources::~WarmSources() {
    watch_ = nullptr;
    loop_.cancel(timer_);
    if (fd_ >= 0) {
        loop_.forget(fd_);
        close(fd_);
        unlink(path_.c_str());
    }
    connections_.clear();
    kept_.clear();
    EncoderFeed::awaitEnds(endTime);
}

void WarmSources::start() {
    if (!listen()) {
        timer_ = loop_.after(retryTime, [this] { start(); }); // the other one may be about to end
        return;
    }
    loop_.watch(fd_, EPOLLIN, [this](std::uint32_t /*events*/) { accept(); });
    watch_ = std::make_unique<WarmWatch>(loop_, [this](const WarmPlan& plan) { configure(plan); });
    watch_->start();
    look();
}

// A file may be left of a gateway that was killed; one that answers belongs to another gateway.
bool WarmSources::listen() {
    if (const int other = streams::openKeptSocket(path_, false); other >= 0) {
        close(other);
        if (!std::exchange(refused_, true))
            logmsg(4, "Another program keeps warm sources already");
        return false;
    }
    if (errno == ECONNREFUSED)
        unlink(path_.c_str());
    fd_ = streams::openKeptSocket(path_, true);
    if (fd_ < 0 && !std::exchange(refused_, true))
        logmsg(3, "Can't keep warm sources: %s (errno=%d %s)", path_.c_str(), errno, std::strerror(errno));
    return fd_ >= 0;
}

void WarmSources::accept() {
    const int fd = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0)
        return;
    if (!mayConnect(fd) || connections_.size() >= mostConnections) {
        close(fd);
        return;
    }
    const std::uint64_t id = next_++;
    const WarmConnection::Answers answers{.find =
                                              [this](const std::string& address) {
                                                  const auto found = kept_.find(address);
                                                  return found == kept_.end() ? nullptr
                                                                              : found->second.stream.get();
                                              },
                                          .status = [this] { return status(); }};
    connections_[id] = std::make_unique<WarmConnection>(
        loop_, fd, answers, [this, id] { loop_.later([this, id] { connections_.erase(id); }); });
}

void WarmSources::configure(const WarmPlan& plan) {
    budget_->limit = plan.settings.mostBytes;
    cameraNumbers_ = plan.cameras;
    std::set<std::string> wanted;
    for (const WarmTarget& target : plan.targets) {
        wanted.insert(target.stream.address.text());
        keep(target);
    }
    for (auto& [address, one] : kept_) {
        const bool isWanted = wanted.contains(address);
        if (!isWanted && one.unwantedSince == 0)
            one.unwantedSince = gettimeusec();
        if (isWanted)
            one.unwantedSince = 0;
        one.stream->want(isWanted);
    }
}

// With other credentials it is another session: the old one ends even while a player takes it.
void WarmSources::keep(const WarmTarget& target) {
    const std::string address = target.stream.address.text();
    const auto present = kept_.find(address);
    if (present != kept_.end() && present->second.target.stream == target.stream) {
        present->second.target.sources = target.sources;
        return;
    }
    if (present != kept_.end())
        drop(present);
    const DetectedStream stream = target.stream;
    kept_[address] = {target,
                      std::make_unique<WarmStream>(
                          loop_, "The stream of source " + indicesText(target.sources), budget_,
                          [this, stream](FeedEvents events) { return feedOf(stream, std::move(events)); }),
                      0};
}

std::unique_ptr<StreamFeed> WarmSources::feedOf(const DetectedStream& stream, FeedEvents events) {
    const auto camera = cameraNumbers_.find(stream.address.text());
    if (camera != cameraNumbers_.end())
        return std::make_unique<CameraFeed>(loop_, cameras_, camera->second, std::move(events));
    return std::make_unique<EncoderFeed>(loop_, stream, std::move(events));
}

void WarmSources::look() {
    const std::int64_t now = gettimeusec();
    for (auto one = kept_.begin(); one != kept_.end();) {
        const auto present = one++;
        present->second.stream->look();
        const std::int64_t unwanted = present->second.unwantedSince;
        if (unwanted != 0 && now - unwanted > lingerUs && !present->second.stream->isNeeded())
            drop(present);
    }
    timer_ = loop_.after(lookTime, [this] { look(); });
}

void WarmSources::drop(std::map<std::string, Kept>::iterator one) {
    const std::unique_ptr<WarmStream> stream = std::move(one->second.stream);
    kept_.erase(one);
}

std::string WarmSources::status() const {
    std::string text;
    for (const auto& [address, one] : kept_) {
        const WarmReport report = one.stream->report();
        text += streams::writeKeptReport({.sources = one.target.sources,
                                          .kept = report.moves,
                                          .keyAgeMs = report.keyAgeMs,
                                          .bitRate = report.bitRate,
                                          .bytes = report.bytes,
                                          .players = static_cast<int>(report.takers),
                                          .reason = report.reason}) +
                "\n";
    }
    return text;
}

} // namespace gateway
