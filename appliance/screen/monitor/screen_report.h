// What the monitor tells the other programs: "Screen.Info.Size", "Screen.Info.MonitorPid", "Screen.Info.MonitorStart".
//
// The values are true as long as the process with that pid runs and has started then. A value that can't be written is
// logged by the library and changes nothing here. One thread.
#pragma once

#include "appliance/screen/layout.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace screen {

// The parameters that a report is written to.
struct ReportNames {
    const char* size;
    const char* pid;
    const char* start;
};
inline constexpr ReportNames monitorReport{"Screen.Info.Size", "Screen.Info.MonitorPid",
                                           "Screen.Info.MonitorStart"};
// Of a tile on a wall. Its values don't replace those of a monitor.
inline constexpr ReportNames tileReport{"Screen.Info.TileSize", "Screen.Info.TilePid",
                                        "Screen.Info.TileStart"};

class ScreenReport {
public:
    // `pid`: of the process that lives as long as the monitor.
    explicit ScreenReport(pid_t pid, const ReportNames& names = monitorReport);

    // The size of the screen in the window, whenever it may have changed. Writes it when it stayed the same for a
    // moment, because a window that is pulled larger has many sizes; at once the first time. `now` is on
    // gettimeusec()'s clock.
    void update(Size size, std::int64_t now);

private:
    void write(const std::string& text);

    pid_t pid_;
    ReportNames names_;
    std::string written_;
    std::string waiting_;
    std::int64_t since_ = 0;
};

// The display is lost: there is no size. Only when the values are those of this pid.
void withdrawSize(pid_t pid);

// The monitor ends: there are no values. Only when they are those of this pid.
void withdrawReport(pid_t pid, const ReportNames& names = monitorReport);

// When the process started, in clock ticks after the machine's start; "" when there is none.
std::string processStart(pid_t pid);

} // namespace screen
