// The gap between two sources on the display.
#include "appliance/screen/frame_store.h"
#include "bench/distribution.h"
#include "bench/monitor/measures.h"
#include "bench/switching.h"

#include <libcommon/clock.h>
#include <libcommon/events.h>

#include <iostream>
#include <random>

namespace bench {

using appliance::Appliance;
using x_server::XServer;

namespace {

struct Gap {
    double milliseconds = 0;
    int black = 0;          // pictures without any light in the strip of the mark
    int damaged = 0;        // pictures whose mark can't be read, which are not whole
    std::vector<Seen> seen; // what the screen showed
};

// What the screen showed and what the players drew around a switch, as one list.
void explain(const Gap& gap) {
    const std::int64_t end = gap.seen.back().time;
    std::cout << "gap of " << gap.milliseconds << " ms:\n";
    for (const screen::FrameInfo& info : screen::FrameStore().infosSince(0))
        if (info.time > end - 200'000)
            std::cout << "  " << static_cast<double>(info.time - end) / 1000.0 << " ms: drawn " << info.number
                      << " by " << info.pid << " of source " << info.source << '\n';
    for (const Seen& seen : gap.seen)
        if (seen.time > end - 200'000)
            std::cout << "  " << static_cast<double>(seen.time - end) / 1000.0 << " ms: shown source "
                      << (seen.mark ? seen.mark->source : -1) << " counter "
                      << (seen.mark ? static_cast<int>(seen.mark->counter) : -1) << '\n';
}

// Watches the old source for `settleMs`, selects `source`, and watches the screen until that shows.
std::optional<Gap> switchTo(DisplayWatch& watch, int source, int settleMs) {
    watch.skip();
    const std::int64_t selectAt = gettimeusec() + std::int64_t{1000} * settleMs;
    std::optional<Seen> last;
    Gap gap;
    while (const auto seen = watch.next(selectAt))
        if (gap.seen.push_back(*seen); seen->mark && (!last || !(seen->mark == last->mark)))
            last = seen;
    Event event{};
    event.id = EID_SELECT;
    event.value1 = source;
    if (!last || sendEvent(&event) != 0)
        return std::nullopt;
    const std::int64_t until = gettimeusec() + 20'000'000;
    while (const auto seen = watch.next(until)) {
        gap.seen.push_back(*seen);
        gap.black += seen->black ? 1 : 0;
        if (!seen->mark) {
            gap.damaged += seen->black ? 0 : 1;
            continue;
        }
        if (seen->mark->source == source) {
            gap.milliseconds = static_cast<double>(seen->time - last->time) / 1000;
            return gap;
        }
        if (!(seen->mark == last->mark))
            last = seen;
    }
    return std::nullopt;
}

} // namespace

int measureGap(const MonitorOptions& options) {
    const double medianLimit = options.median.value_or(10);
    const double worstLimit = options.worst.value_or(40);
    // The appliance may be in namespaces of its own. The server shares its pictures' memory with the monitor only if it
    // starts there, too; otherwise a picture comes in pieces.
    Appliance decoder;
    XServer server(options.width, options.height, true);
    for (const char* name : {"Front door", "Garage"})
        decoder.addEncoder(name, sizeArguments(options));
    decoder.setManual();
    decoder.set("Screen.Fit", "fill"); // the mark is read where the picture covers the screen
    decoder.start();
    const auto monitor = startMonitor(options, server, decoder.root());
    joinAppliance(decoder);
    DisplayWatch watch(server);
    if (!awaitSource(watch, 0)) {
        std::cerr << "no first picture on the display\n";
        return 1;
    }
    // The first selection detects the second encoder, which must not be measured.
    switchTo(watch, 1, 300);
    switchTo(watch, 0, 300);
    Distribution gaps;
    int black = 0;
    int damaged = 0;
    int failed = 0;
    std::mt19937 random(1);
    for (int i = 0; i < options.switches; ++i) {
        const int settleMs = 400 + std::uniform_int_distribution(0, 79)(random);
        if (const auto gap = switchTo(watch, (i + 1) % 2, settleMs)) {
            gaps.add(gap->milliseconds);
            if (options.explain > 0 && gap->milliseconds > options.explain)
                explain(*gap);
            black += gap->black;
            damaged += gap->damaged;
        } else {
            ++failed;
        }
    }
    endMonitor(*monitor);
    std::cout << options.width << 'x' << options.height
              << ", gap on the display, last picture of the old source to "
              << "first of the new one:\n  " << gaps.summary("ms") << '\n'
              << histogram(gaps, 10, "ms") << "Black pictures: " << black << "\nDamaged pictures: " << damaged
              << "\nSwitches without a picture: " << failed << '\n';
    const bool good = failed == 0 && black == 0 && damaged == 0 && gaps.median() <= medianLimit &&
                      gaps.worst() <= worstLimit;
    std::cout << (good ? "within" : "NOT within") << " the limits: median " << medianLimit << " ms, worst "
              << worstLimit << " ms, nothing black or damaged\n";
    return options.assertLimits && !good ? 1 : 0;
}

} // namespace bench
