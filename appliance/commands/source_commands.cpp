#include "appliance/commands/source_commands.h"

#include "appliance/commands/actions.h"
#include "appliance/commands/camera_probe.h"
#include "appliance/commands/connection.h"
#include "appliance/commands/source_effect.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/settings/known_parameters.h"
#include "appliance/settings/parameter_check.h"
#include "appliance/settings/source_sections.h"

#include <libcommon/parameter_lines.h>
#include <libcommon/text.h>

#include <algorithm>
#include <functional>
#include <map>
#include <optional>

namespace {

// Changes the parameter file; `edit` throws Refused to leave it as it is.
void rewrite(const std::function<std::string(const std::string& text)>& edit) {
    std::optional<Refused> refused;
    const bool written =
        libcommon::rewriteParameterFile(0, [&](const std::string& text) -> std::optional<std::string> {
            try {
                return edit(text);
            } catch (const Refused& reason) {
                refused = reason;
                return std::nullopt;
            }
        });
    if (refused)
        throw *refused;
    if (!written)
        throw Refused("the parameter file could not be written");
}

// The present name of the section with this index.
std::string sectionName(const std::string& text, int index) {
    const std::vector<std::string> names = sourceSectionNames(text);
    if (index < 0 || static_cast<std::size_t>(index) >= names.size())
        throw Refused("the sources have changed meanwhile: try again");
    return names[static_cast<std::size_t>(index)];
}

void requireFreeName(const std::string& text, const std::string& name) {
    for (const std::string& present : sourceSectionNames(text)) {
        if (sameName(present, name))
            throw Refused("there is a source " + inQuotes(present) + " already");
    }
}

std::string sourceText(int index, const std::string& name) {
    return "source " + std::to_string(index) + ' ' + inQuotes(name);
}

void requireWritable(const std::string& what, const std::string& value) {
    if (libcommon::printable(value) != value || value != libcommon::trimmed(value))
        throw Refused("the " + what +
                      " begins or ends with a blank, or has a character that the parameter file can't have");
}

struct CheckedCamera {
    std::vector<std::string> lines; // of its section
    std::string description;        // for people, ends with "; "; "" when it was not checked
};

using CameraFacts = std::map<std::string, std::string>;

// The camera's smaller stream. Nothing when there is none, and when it may fail and does.
std::optional<CameraFacts> checkedSubStream(const CameraAccess& access, bool connect) {
    if (access.subUrl.empty())
        return std::nullopt;
    try {
        return probeCamera(access.subUrl, access.user, access.password, connect);
    } catch (const Refused& reason) {
        if (!access.subMayFail)
            throw Refused(std::string("the sub stream: ") + reason.what());
        return std::nullopt;
    }
}

CheckedCamera checkedCamera(const CameraAccess& access, bool connect) {
    CameraFacts main = probeCamera(access.url, access.user, access.password, connect);
    std::optional<CameraFacts> sub = checkedSubStream(access, connect);
    requireWritable("user name", main["UserName"]);
    requireWritable("password", main["Password"]);
    CheckedCamera camera;
    camera.lines.push_back("URL = " + main["URL"]);
    if (sub)
        camera.lines.push_back("SubURL = " + (*sub)["URL"]);
    if (!main["UserName"].empty())
        camera.lines.push_back("UserName = " + main["UserName"]);
    if (!main["Password"].empty())
        camera.lines.push_back("Password = " + main["Password"]);
    if (!main["VideoSourceType"].empty())
        camera.lines.push_back("VideoSourceType = " + main["VideoSourceType"]);
    if (connect)
        camera.description = main["Video"] + "; " + (sub ? "sub stream: " + (*sub)["Video"] + "; " : "");
    if (!sub && !access.subUrl.empty())
        camera.description += "its sub stream does not play and is left out; ";
    return camera;
}

} // namespace

std::string addSource(const std::string& name, const CameraAccess& access, const AddOptions& options) {
    if (const std::string reason = whyNotSourceName(name); !reason.empty())
        throw Refused(reason);
    requireReadableConfiguration();
    requireFreeName(readParameterText(configurationFile()), name);
    const CheckedCamera camera = checkedCamera(access, !options.unchecked);
    const DecoderBefore before = lookAtDecoder();
    int index = 0;
    rewrite([&](const std::string& text) {
        requireFreeName(text, name);
        index = static_cast<int>(sourceSectionNames(text).size());
        return withSource(text, name, camera.lines);
    });
    const std::string added = camera.description + "added as " + sourceText(index, name) + "; ";
    if (options.apply && before.running && !awaitCompletion(name))
        return added + "camera-gateway has not completed it: it plays when camera-gateway runs and the "
                       "configuration was applied (decoderctl apply)";
    return added + applyChange(before, before.shown, options.apply);
}

std::string removeSource(int index, const std::string& name, bool apply) {
    const DecoderBefore before = lookAtDecoder();
    rewrite([&](const std::string& text) { return withoutSource(text, sectionName(text, index)); });
    return "removed " + sourceText(index, name) + "; " + applyChange(before, before.shown, apply);
}

std::string renameSource(int index, const std::string& name, const std::string& newName, bool apply) {
    if (const std::string reason = whyNotSourceName(newName); !reason.empty())
        throw Refused(reason);
    const DecoderBefore before = lookAtDecoder();
    std::string present;
    rewrite([&](const std::string& text) {
        present = sectionName(text, index);
        if (!sameName(present, newName))
            requireFreeName(text, newName);
        return withSourceRenamed(text, present, newName);
    });
    const std::string shown = sameName(before.shown, present) ? newName : before.shown;
    return "renamed " + sourceText(index, name) + " to " + inQuotes(newName) + "; " +
           applyChange(before, shown, apply);
}

std::string orderSources(const std::vector<int>& indices, bool apply) {
    const DecoderBefore before = lookAtDecoder();
    rewrite([&](const std::string& text) {
        std::vector<std::string> names;
        for (const int index : indices) {
            const std::string name = sectionName(text, index);
            if (std::ranges::find(names, name) != names.end())
                throw Refused("source " + inQuotes(name) + " is named twice");
            names.push_back(name);
        }
        for (const std::string& name : sourceSectionNames(text)) {
            if (std::ranges::find(names, name) == names.end())
                names.push_back(name);
        }
        return withSourcesOrdered(text, names);
    });
    return "the sources have a new order; " + applyChange(before, before.shown, apply);
}
