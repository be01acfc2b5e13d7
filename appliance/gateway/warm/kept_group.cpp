#include "appliance/gateway/warm/kept_group.h"

#include <utility>

namespace gateway {
namespace {

// What an item costs beside its bytes: the shared text's own memory and its place in the list.
constexpr std::size_t itemCost = 128;
constexpr std::size_t mostWaiting = 64;

std::size_t costOf(const streams::Packet& bytes) {
    return bytes->size() + itemCost;
}

} // namespace

KeptGroup::KeptGroup(std::shared_ptr<KeptBudget> budget, std::size_t shownLate)
    : budget_(std::move(budget)), shownLate_(shownLate) {}

KeptGroup::~KeptGroup() {
    clear();
}

void KeptGroup::add(const KeptItem& item) {
    if (item.key)
        begin(item);
    if (item.key || !items_.empty())
        append(item);
    else
        wait(item);
}

// While nothing is kept, only the present unit waits: it may prove to be a key picture.
void KeptGroup::wait(const KeptItem& item) {
    if (!waiting_.empty() && waiting_.back().unit != item.unit)
        waiting_.clear();
    if (waiting_.size() < mostWaiting)
        waiting_.push_back(item);
}

// Items of the key picture may have come before the one that tells that it is one.
void KeptGroup::begin(const KeptItem& item) {
    std::deque<KeptItem> early = std::exchange(waiting_, {});
    if (!early.empty() && early.back().unit != item.unit)
        early.clear();
    while (!items_.empty() && items_.back().unit == item.unit) {
        early.push_front(std::move(items_.back()));
        items_.pop_back();
    }
    clear();
    overran_ = false;
    if (item.before != nullptr)
        append({.kind = item.kind,
                .bytes = item.before,
                .unit = item.unit,
                .newPicture = true,
                .key = true,
                .before = nullptr});
    for (const KeptItem& one : early)
        append(one);
}

void KeptGroup::append(const KeptItem& item) {
    if (overran_)
        return;
    if (!takeRoom(costOf(item.bytes))) {
        clear();
        overran_ = true;
        return;
    }
    if (item.newPicture || items_.empty()) {
        pictures_.push_back(items_.size());
        if (pictures_.size() > shownLate_ + 1)
            pictures_.pop_front();
    }
    items_.push_back(item);
}

bool KeptGroup::takeRoom(std::size_t bytes) {
    if (budget_->used + bytes > budget_->limit)
        return false;
    budget_->used += bytes;
    bytes_ += bytes;
    return true;
}

void KeptGroup::clear() {
    waiting_.clear();
    items_.clear();
    pictures_.clear();
    budget_->used -= bytes_;
    bytes_ = 0;
}

std::size_t KeptGroup::live() const {
    return pictures_.empty() ? 0 : pictures_.front();
}

} // namespace gateway
