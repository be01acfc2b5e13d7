#include "bench/screen/alarm_text.h"

#include <libcommon/events.h>

#include <functional>

namespace bench {
namespace {

constexpr int light = 225; // of the text's inner pixels
constexpr int dim = 200;
constexpr int looks = 5;
constexpr int betweenLooks = 50; // milliseconds
constexpr double gone = 3300;    // milliseconds after an alarm, when its text is no longer shown
constexpr const char* words = "Somebody is at the gate";

void select(int source) {
    Event event{};
    event.id = EID_SELECT;
    event.value1 = source;
    sendEvent(&event);
}

// The pixels among `candidates` that pass the test in each of several looks.
std::vector<std::pair<int, int>> steady(const std::vector<std::pair<int, int>>& candidates, Watcher& watcher,
                                        const std::function<bool(int, int)>& passes) {
    std::vector<std::pair<int, int>> left = candidates;
    for (int i = 0; i < looks; ++i) {
        std::erase_if(left, [&](const auto& place) { return !passes(place.first, place.second); });
        watcher.watch(clockMs() + betweenLooks);
    }
    return left;
}

} // namespace

AlarmText::AlarmText(const Pixels& pixels, const appliance::Appliance& decoder, Watcher& watcher)
    : pixels_(pixels), decoder_(decoder), watcher_(watcher) {
    constexpr double patience = 20'000;
    if (!watcher_.await(0, clockMs() + patience))
        return;
    decoder_.ctl({"alarm", "1", words});
    if (watcher_.await(1, clockMs() + patience)) {
        watcher_.watch(clockMs() + 150);
        learn();
    }
    back(patience);
}

// Texts are in the upper third.
void AlarmText::learn() {
    std::vector<std::pair<int, int>> all;
    for (int y = 0; y < pixels_.height() / 3; ++y)
        for (int x = 0; x < pixels_.width(); ++x)
            all.emplace_back(x, y);
    const auto isLight = [this](int x, int y) { return pixels_.brightness(x, y) >= light; };
    const auto isDim = [this](int x, int y) { return pixels_.brightness(x, y) < dim; };
    const auto bright = steady(all, watcher_, isLight);
    watcher_.watch(clockMs() + gone);
    text_ = steady(bright, watcher_, isDim);
}

bool AlarmText::shows() const {
    std::size_t found = 0;
    for (const auto& [x, y] : text_)
        found += pixels_.brightness(x, y) >= light ? 1 : 0;
    return found * 10 >= text_.size() * 9;
}

std::optional<double> AlarmText::raise(double patienceMs) {
    const double asked = clockMs();
    const appliance::Process command({appliance::Appliance::program("decoderctl"), "alarm", "1", words},
                                     {{"APPLIANCE_ROOT", decoder_.root()}}, "");
    const double until = asked + patienceMs;
    std::optional<double> seen = watcher_.await(1, until);
    while (seen && !shows() && clockMs() < until)
        watcher_.watch(clockMs() + 1);
    if (!seen || !shows())
        return std::nullopt;
    const double time = clockMs() - asked;
    watcher_.watch(asked + gone); // the next alarm would be dropped earlier
    if (!back(patienceMs))
        return std::nullopt;
    return time;
}

bool AlarmText::back(double patienceMs) {
    select(0);
    return watcher_.await(0, clockMs() + patienceMs).has_value();
}

} // namespace bench
