#include "appliance/players/showing/stillness.h"

#include <libcommon/params.h>
#include <libcommon/status.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace player {
namespace {

constexpr const char* statusKey = "Still";
constexpr int longestAfter = 86'400;

} // namespace

StillnessSettings stillnessSettings() {
    const ParamWrapper configuration(0, false);
    StillnessSettings settings;
    const Param after = configuration["Player.StillAfter"];
    if (after != "")
        settings.after = std::clamp(after.toInt(), 0, longestAfter);
    settings.endsPlayer = configuration["Player.EndWhenStill"] == "yes";
    return settings;
}

int secondsStill(const StillnessSettings& settings, std::int64_t lastChange, std::int64_t now) {
    if (settings.after == 0 || lastChange == 0)
        return 0;
    const std::int64_t seconds = (now - lastChange) / 1'000'000;
    return seconds < settings.after ? 0 : static_cast<int>(std::min<std::int64_t>(seconds, INT32_MAX));
}

void StillnessReport::tell(int seconds) {
    const std::lock_guard guard(lock_);
    if (wanted_ == -1)
        std::thread([this] { write(); }).detach();
    wanted_ = seconds;
    changed_.notify_all();
}

void StillnessReport::clear(int patienceMs) {
    std::unique_lock guard(lock_);
    if (wanted_ == -1)
        return;
    wanted_ = 0;
    changed_.notify_all();
    changed_.wait_for(guard, std::chrono::milliseconds(patienceMs), [this] { return written_ == 0; });
}

void StillnessReport::write() {
    std::unique_lock guard(lock_);
    for (;;) {
        changed_.wait(guard, [this] { return wanted_ != written_; });
        const int seconds = wanted_;
        guard.unlock();
        // The first write of 0 takes a lock only if there is something to clear.
        if (seconds > 0)
            status(source_, statusKey, seconds);
        else if (!status(source_, statusKey).empty())
            status(source_, statusKey, "");
        guard.lock();
        written_ = seconds;
        changed_.notify_all();
    }
}

} // namespace player
