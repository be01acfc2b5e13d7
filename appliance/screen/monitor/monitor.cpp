#include "appliance/screen/monitor/monitor.h"

#include "appliance/screen/monitor/decoder_content.h"
#include "appliance/screen/monitor/gpu_probe.h"
#include "appliance/screen/monitor/screen_report.h"

#include <libcommon/clock.h>

#include <map>
#include <unistd.h>

namespace screen {
namespace {

// What the probe has found, for each driver. The probe runs in the guard, before the first shower.
bool isGpuGood(const SessionOptions& options, const std::string& driver, std::map<std::string, bool>& found) {
    if (options.backEnd != BackEndChoice::automatic)
        return false;
    const auto [known, fresh] = found.try_emplace(driver, false);
    if (fresh)
        known->second = gpuIsGood(driver);
    return known->second;
}

} // namespace

int runMonitorWith(const SessionOptions& options, const std::function<std::unique_ptr<Content>()>& make,
                   const std::function<void()>& lost) {
    const std::vector<std::string> drivers = displayDrivers();
    std::map<std::string, bool> gpu;
    const auto probe = [&] {
        for (const std::string& driver : drivers)
            isGpuGood(options, driver, gpu);
    };
    return runGuard(
        drivers,
        [&](const Attempt& attempt, Shown& shown) {
            return runSession(options, attempt, gpu[attempt.driver], shown, make);
        },
        lost, options.until, probe);
}

int runMonitor(const SessionOptions& options) {
    const pid_t guard = getpid();
    ScreenReport report(guard);
    SessionOptions reporting = options;
    reporting.report = [&](Size size) { report.update(size, gettimeusec()); };
    const int status = runMonitorWith(
        reporting, [] { return std::make_unique<DecoderContent>(); }, [=] { withdrawSize(guard); });
    withdrawReport(guard);
    return status;
}

} // namespace screen
