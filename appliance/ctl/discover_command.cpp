#include "appliance/ctl/discover_command.h"

#include "appliance/commands/source_commands.h"
#include "appliance/ctl/password_prompt.h"
#include "appliance/reporting/json_text.h"

#include <libcommon/text.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <ostream>
#include <vector>

namespace {

constexpr std::size_t longestText = 60; // characters of a device's text in the table

using Row = std::vector<std::string>;

bool beginsCharacter(char c) {
    return (c & 0xc0) != 0x80;
}

std::size_t characters(const std::string& text) {
    return static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
}

// A device's text for the table: printable, and not longer than the table can bear.
std::string shown(const std::string& text) {
    const std::string clean = libcommon::printable(text);
    std::size_t count = 0;
    for (std::size_t i = 0; i < clean.size(); ++i) {
        count += beginsCharacter(clean[i]) ? 1U : 0U;
        if (count > longestText) {
            return clean.substr(0, i) + "...";
        }
    }
    return clean;
}

std::string sizeText(const MediaProfile& profile) {
    return profile.width == 0 ? "" : std::to_string(profile.width) + "x" + std::to_string(profile.height);
}

std::string rateText(double rate) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g/s", rate);
    return rate > 0 ? text.data() : "";
}

Row cameraRow(const Camera& camera) {
    return {std::to_string(camera.number), camera.name.empty() ? "-" : shown(camera.name), camera.address,
            libcommon::printable(stateText(camera))};
}

Row streamRow(const CameraStream& stream) {
    const MediaProfile& profile = stream.profile;
    return {"",
            "",
            shown(profile.name),
            shown(profile.codec),
            sizeText(profile),
            rateText(profile.rate),
            stream.url.empty() ? libcommon::printable(stream.problem) : stream.url};
}

// The rows with their columns below each other; the last column of a row is not padded.
std::string table(const std::vector<Row>& rows, const std::vector<std::size_t>& widths) {
    std::string text;
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            text += row[i];
            if (i + 1 < row.size()) {
                text.append(widths[i] - std::min(characters(row[i]), widths[i]) + 2, ' ');
            }
        }
        text += '\n';
    }
    return text;
}

void widen(std::vector<std::size_t>& widths, const Row& row) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
        widths[i] = std::max(widths[i], characters(row[i]));
    }
}

} // namespace

std::string discoveryText(const Discovery& discovery) {
    std::string text;
    std::vector<std::size_t> cameraWidths(4, 1);
    std::vector<std::size_t> streamWidths(7, 1);
    for (const Camera& camera : discovery.cameras) {
        widen(cameraWidths, cameraRow(camera));
        for (const CameraStream& stream : camera.streams) {
            widen(streamWidths, streamRow(stream));
        }
    }
    for (const Camera& camera : discovery.cameras) {
        text += table({cameraRow(camera)}, cameraWidths);
        for (const CameraStream& stream : camera.streams) {
            text += table({streamRow(stream)}, streamWidths);
        }
    }
    if (discovery.cameras.empty()) {
        text += "no camera has answered\n";
    }
    for (const std::string& note : discovery.notes) {
        text += libcommon::printable(note) + '\n';
    }
    return text;
}

SourceToAdd sourceToAdd(int found, const std::string& profile, const std::string& name,
                        const std::string& url) {
    if (found == 0) {
        return {name, url, ""};
    }
    SourceToAdd source = sourceFromDiscovery(readFoundCameras(foundCamerasFile()), found, profile);
    if (!name.empty()) {
        source.name = name;
    }
    return source;
}

void discover(const DiscoverRequest& request, bool json, std::ostream& out) {
    DiscoveryOptions options;
    options.seconds = request.timeout;
    options.interface = request.interface;
    options.address = request.address;
    options.credentials.user = request.user;
    if (!request.user.empty()) {
        options.credentials.password = readPassword(request.passwordStdin);
    }
    Discovery found = discoverCameras(options);
    const std::string file = foundCamerasFile();
    if (const std::string mistake = keepFoundCameras(found, file); !mistake.empty()) {
        found.notes.push_back("the result could not be kept: " + mistake);
    }
    out << (json ? jsonLines(discoveryJson(found)) : discoveryText(found));
}
