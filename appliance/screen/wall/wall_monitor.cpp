#include "appliance/screen/wall/wall_monitor.h"

#include "appliance/screen/monitor/monitor.h"
#include "appliance/screen/wall/wall_content.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

namespace screen {
namespace {

namespace fs = std::filesystem;

// Why these roots can't be the tiles of a layout with so many; "": they can.
std::string faultOf(std::size_t tiles, const std::vector<std::string>& roots) {
    if (roots.empty())
        return "--wall needs the appliance root of each decoder";
    if (roots.size() > tiles)
        return "this layout has " + std::to_string(tiles) + " tiles, but there are " +
               std::to_string(roots.size()) + " appliance roots";
    for (const std::string& root : roots) {
        std::error_code error;
        if (!fs::is_directory(root, error))
            return "the appliance root " + root + " is not a folder";
    }
    return "";
}

int refuse(const std::string& reason) {
    std::fprintf(stderr, "decoder-monitor: %s\n", reason.c_str());
    return 2;
}

std::vector<std::string> absolute(const std::vector<std::string>& roots) {
    std::vector<std::string> all;
    for (const std::string& root : roots) {
        std::error_code error;
        const fs::path path = fs::absolute(root, error);
        all.push_back(error ? root : path.string());
    }
    return all;
}

} // namespace

int runWall(const SessionOptions& options, const std::string& layout, const std::vector<std::string>& roots) {
    std::string reason;
    const std::optional<WallLayout> parsed = parseWallLayout(layout, reason);
    if (!parsed)
        return refuse("--wall " + layout + ": " + reason);
    if (const std::string fault = faultOf(parsed->tiles.size(), roots); !fault.empty())
        return refuse(fault);
    const std::vector<std::string> all = absolute(roots);
    return runMonitorWith(
        options, [&] { return std::make_unique<WallContent>(*parsed, all); }, nullptr);
}

} // namespace screen
