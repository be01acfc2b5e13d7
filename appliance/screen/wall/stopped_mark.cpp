#include "appliance/screen/wall/stopped_mark.h"

namespace screen {

std::string ageText(std::int64_t us) {
    const std::int64_t seconds = us / 1'000'000;
    const std::int64_t minutes = seconds / 60;
    const std::int64_t hours = minutes / 60;
    if (minutes == 0)
        return std::to_string(seconds) + " s";
    if (hours == 0)
        return std::to_string(minutes) + " min";
    if (hours < 48)
        return std::to_string(hours) + " h " + std::to_string(minutes % 60) + " min";
    return std::to_string(hours / 24) + " days";
}

std::string stoppedMark(const TileHealth& health) {
    const bool stopped = health.visible && health.ageUs >= stoppedAfterUs;
    if (health.supervisor)
        return stopped ? "No new picture for " + ageText(health.ageUs) : "";
    const std::string gone = "No decoder runs here";
    return health.visible ? gone + ", last picture " + ageText(health.ageUs) + " ago" : gone;
}

} // namespace screen
