#include "appliance/gateway/warm/warm_stream.h"

#include "appliance/gateway/loop/back_off.h"

#include <libcommon/clock.h>
#include <libcommon/log.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace gateway {
namespace {

// In a byte stream, and in transport packets, a picture is known to be complete when the next one begins.
std::size_t shownLate(const streams::KeptDescription& description) {
    const bool bytes = description.form == streams::KeptDescription::Form::bytes;
    return bytes || (description.video && description.video->encodingName == "MP2T") ? 1 : 0;
}

bool isSound(const KeptItem& item) {
    return item.kind == streams::KeptFrame::sound;
}

} // namespace

WarmStream::WarmStream(EventLoop& loop, std::string name, std::shared_ptr<KeptBudget> budget,
                       MakeFeed makeFeed)
    : loop_(loop), name_(std::move(name)), budget_(std::move(budget)), makeFeed_(std::move(makeFeed)) {
    open();
}

WarmStream::~WarmStream() {
    loop_.cancel(againTimer_);
    endTakers("the keeper keeps the stream no longer");
}

// ---- The connection.

void WarmStream::open() {
    opened_ = lastItem_ = lastLook_ = gettimeusec();
    feed_ =
        makeFeed_({.opened = [this](const streams::KeptDescription& description) { onOpened(description); },
                   .item = [this](const KeptItem& item, bool held) { onItem(item, held); },
                   .pause = [this] { pause(); },
                   .ended = [this](const std::string& reason) { onEnded(reason); }});
}

// The feed may be in the middle of a call.
void WarmStream::close() {
    group_ = nullptr;
    description_.reset();
    bitRate_ = 0;
    lastKey_ = 0;
    if (const std::shared_ptr<StreamFeed> feed = std::move(feed_); feed != nullptr)
        loop_.later([feed] {});
}

void WarmStream::onOpened(const streams::KeptDescription& description) {
    if (feed_ == nullptr)
        return;
    description_ = description;
    group_ = std::make_unique<KeptGroup>(budget_, shownLate(description));
    reason_.clear();
    logmsg(6, "%s is kept", name_.c_str());
}

void WarmStream::onItem(const KeptItem& item, bool held) {
    if (group_ == nullptr)
        return;
    bytes_ += held ? 0 : item.bytes->size();
    if (!isSound(item)) {
        const std::int64_t now = gettimeusec();
        if (!held) {
            lastItem_ = now;
            failures_ = 0;
        }
        if (item.key)
            lastKey_ = now;
        group_->add(item);
    }
    // A taker may leave during the call.
    for (auto one = takers_.begin(); one != takers_.end();) {
        const std::shared_ptr<WarmTaker> taker = one->second;
        ++one;
        taker->item(item, item.key);
    }
}

void WarmStream::pause() {
    for (auto one = takers_.begin(); one != takers_.end();) {
        const std::shared_ptr<WarmTaker> taker = one->second;
        ++one;
        taker->flush();
    }
}

void WarmStream::onEnded(const std::string& reason) {
    if (feed_ == nullptr)
        return;
    close();
    ++failures_;
    if (reason != reason_)
        logmsg(4, "%s is not kept: %s", name_.c_str(), reason.c_str());
    reason_ = reason;
    endTakers(reason);
    againTimer_ = loop_.after(pauseAfter(failures_), [this] {
        againTimer_ = 0;
        open();
    });
}

void WarmStream::look() {
    const std::int64_t now = gettimeusec();
    const double seconds = static_cast<double>(std::max<std::int64_t>(now - lastLook_, 1)) / 1e6;
    const double rate = 8.0 * static_cast<double>(std::exchange(bytes_, 0)) / seconds;
    constexpr double weight = 0.4; // of the last second
    bitRate_ = bitRate_ == 0 ? rate : bitRate_ + weight * (rate - bitRate_);
    lastLook_ = now;
    if (feed_ != nullptr && takers_.empty() && feed_->isReplaced()) {
        close();
        return open();
    }
    if (feed_ != nullptr && now - lastItem_ > longestSilenceUs)
        onEnded(group_ == nullptr ? "the encoder sends nothing" : "the encoder has stopped sending");
}

// ---- Who takes it.

bool WarmStream::moves() const {
    return gettimeusec() - lastItem_ <= longestPauseUs;
}

WarmStream::TakerId WarmStream::join(WarmTaker taker) {
    if (group_ == nullptr || group_->items().empty() || !moves())
        return 0;
    const auto shared = std::make_shared<WarmTaker>(std::move(taker));
    shared->description(*description_);
    const auto& items = group_->items();
    const bool pictures = description_->form == streams::KeptDescription::Form::pictures;
    const std::size_t live = pictures ? items.size() - 1 : group_->live();
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i == live)
            shared->live();
        if (!pictures || i == live)
            shared->item(items[i], i == 0);
    }
    const TakerId id = nextTaker_++;
    takers_[id] = shared;
    shared->flush();
    return id;
}

void WarmStream::leave(TakerId taker) {
    takers_.erase(taker);
}

void WarmStream::endTakers(const std::string& reason) {
    for (const auto& [id, taker] : std::exchange(takers_, {}))
        taker->ended(reason);
}

WarmReport WarmStream::report() const {
    WarmReport report;
    report.kept = group_ != nullptr && !group_->items().empty();
    report.moves = report.kept && moves();
    if (group_ == nullptr)
        report.reason = reason_.empty() ? "connecting" : reason_;
    else if (group_->overran())
        report.reason = "needs more memory than Warm.MaxMemory allows";
    else if (!report.kept)
        report.reason = "waits for a key picture";
    else if (!report.moves)
        report.reason = "sends nothing";
    if (lastKey_ != 0)
        report.keyAgeMs = (gettimeusec() - lastKey_) / 1000;
    report.bitRate = static_cast<std::int64_t>(bitRate_);
    report.bytes = group_ == nullptr ? 0 : group_->bytes();
    report.takers = takers_.size();
    return report;
}

} // namespace gateway
