#include "appliance/panel/access/try_limit.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cmath>

namespace panel {
namespace {

constexpr std::int64_t minute = 60; // seconds

// Who has one IPv6 address has a whole network of them.
std::string networkOf(std::string_view address) {
    const std::string text(address);
    std::array<unsigned char, 16> bytes{};
    if (inet_pton(AF_INET6, text.c_str(), bytes.data()) != 1)
        return text;
    return {bytes.begin(), bytes.begin() + 8};
}

} // namespace

std::int64_t TryLimit::secondsToWait(Bucket& bucket, unsigned most, std::int64_t now) {
    const double gained = static_cast<double>(now - bucket.filled) * most / static_cast<double>(minute);
    bucket.tries = std::min<double>(most, bucket.tries + gained);
    bucket.filled = now;
    return bucket.tries >= 1 ? 0
                             : static_cast<std::int64_t>(
                                   std::ceil((1 - bucket.tries) * static_cast<double>(minute) / most));
}

// An address whose bucket is full again is as good as unknown.
void TryLimit::forgetFull(std::int64_t now) {
    if (buckets_.size() < mostAddresses)
        return;
    std::erase_if(buckets_, [now](const auto& entry) { return now - entry.second.filled >= minute; });
    if (buckets_.size() >= mostAddresses)
        buckets_.clear(); // the limit of all tries still holds
}

std::int64_t TryLimit::begin(std::string_view address, std::int64_t now) {
    forgetFull(now);
    const auto bucket =
        buckets_.try_emplace(networkOf(address), Bucket{static_cast<double>(ofAddress_), now}).first;
    const std::int64_t wait = std::max(secondsToWait(bucket->second, ofAddress_, now),
                                       secondsToWait(all_, ofAddress_ * addresses, now));
    if (wait > 0)
        return wait;
    bucket->second.tries -= 1;
    all_.tries -= 1;
    return 0;
}

void TryLimit::giveBack(std::string_view address) {
    if (const auto bucket = buckets_.find(networkOf(address)); bucket != buckets_.end())
        bucket->second.tries += 1;
    all_.tries += 1;
}

} // namespace panel
