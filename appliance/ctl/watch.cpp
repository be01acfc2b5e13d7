#include "appliance/ctl/watch.h"

#include "appliance/operating/running_decoder.h"
#include "appliance/reporting/changes.h"

#include <libcommon/clock.h>

#include <csignal>
#include <ctime>
#include <iomanip>
#include <ostream>

namespace {

constexpr timespec betweenLooks{0, 100'000'000};

void print(const Change& change, bool json, std::ostream& out) {
    if (json) {
        out << changeJsonLine(change, isoTime()) << '\n';
    } else {
        std::string time = isoTime().substr(0, 23);
        time[10] = ' ';
        out << time << "  " << std::left << std::setw(11) << change.what << change.text << '\n';
    }
    out.flush();
}

} // namespace

void watchDecoder(double seconds, bool json, std::ostream& out) {
    requireRunningAppliance();
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    sigprocmask(SIG_BLOCK, &ends, nullptr);

    const std::int64_t start = gettimeusec();
    DecoderStatus shown = readDecoderStatus();
    for (const Change& change : everything(shown)) {
        print(change, json, out);
    }
    FrameRate rate;
    while (sigtimedwait(&ends, nullptr, &betweenLooks) < 0 &&
           (seconds == 0 || static_cast<double>(gettimeusec() - start) < seconds * 1e6)) {
        DecoderStatus now = readDecoderStatus();
        for (const Change& change : changesBetween(shown, now)) {
            print(change, json, out);
        }
        if (now.picture && rate.add(now.picture->number, gettimeusec())) {
            print(rateChange(rate.value()), json, out);
        }
        shown = std::move(now);
    }
}
