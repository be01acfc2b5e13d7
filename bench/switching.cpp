#include "bench/switching.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

constexpr std::int64_t limit = 10'000'000; // microseconds
constexpr int pollMs = 20;

double milliseconds(std::int64_t microseconds) {
    return static_cast<double>(microseconds) / 1000.0;
}

bool sendSelect(int source) {
    Event event{};
    event.id = EID_SELECT;
    event.value1 = source;
    if (sendEvent(&event) == 0)
        return true;
    std::perror("sendEvent");
    return false;
}

// Reads the frames after `last` until one of another source comes.
std::optional<Switch> watch(screen::FrameStore& store, screen::FrameInfo last, int source,
                            std::int64_t start) {
    Switch result;
    const int old = last.source;
    const std::int64_t blankedBefore = store.blankedAt();
    while (gettimeusec() - start < limit) {
        store.wait(last.number, pollMs);
        for (const screen::FrameInfo& info : store.infosSince(last.number)) {
            if (info.source == source) {
                result.gap = milliseconds(info.time - last.time);
                result.answer = milliseconds(info.time - start);
                result.blanked = store.blankedAt() != blankedBefore && store.blankedAt() < info.time;
                return result;
            }
            if (info.source == old && info.time >= start)
                result.oldPause = std::max(result.oldPause, milliseconds(info.time - last.time));
            last = info;
        }
    }
    return std::nullopt;
}

} // namespace

void joinAppliance(const appliance::Appliance& decoder) {
    setenv("APPLIANCE_ROOT", decoder.root().c_str(), 1);
    setenv("LIBCOMMON_LOG", "stderr", 1);
}

std::optional<Switch> switchTo(appliance::Appliance& decoder, int source) {
    const screen::FrameInfo last = decoder.screen().newestInfo();
    const std::int64_t start = gettimeusec();
    if (!sendSelect(source))
        return std::nullopt;
    return watch(decoder.screen(), last, source, start);
}

std::optional<Switch> stopThenStart(appliance::Appliance& decoder, int source) {
    const screen::FrameInfo last = decoder.screen().newestInfo();
    const std::int64_t start = gettimeusec();
    if (decoder.ctl({"disconnect"}).status != 0 || !decoder.waitForText(0, "Disconnected") ||
        !sendSelect(source))
        return std::nullopt;
    return watch(decoder.screen(), last, source, start);
}

} // namespace bench
