#include "appliance/ctl/source_commands.h"

#include "appliance/ctl/actions.h"
#include "appliance/ctl/camera_probe.h"
#include "appliance/ctl/connection.h"
#include "appliance/ctl/known_parameters.h"
#include "appliance/ctl/parameter_check.h"
#include "appliance/ctl/source_sections.h"
#include "appliance/operating/decoder_events.h"
#include "appliance/operating/quoted_text.h"
#include "appliance/operating/refused.h"
#include "appliance/operating/running_decoder.h"

#include <libcommon/events.h>
#include <libcommon/parameter_lines.h>
#include <libcommon/text.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <optional>
#include <termios.h>
#include <unistd.h>

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

// Tells a decoder that waits for its first source, and says when the others see the change.
std::string effect() {
    if (libcommon::eventQueueOwner() < 0)
        return "in force when the decoder starts";
    sendPlainEvent(EID_CONNECTPROPERTYCHANGED);
    return isConnected() ? "in force at the next connect (decoderctl apply: at once)"
                         : "in force when the decoder connects";
}

std::string sourceText(int index, const std::string& name) {
    return "source " + std::to_string(index) + ' ' + inQuotes(name);
}

void requireWritable(const std::string& what, const std::string& value) {
    if (libcommon::printable(value) != value || value != libcommon::trimmed(value))
        throw Refused("the " + what +
                      " begins or ends with a blank, or has a character that the parameter file can't have");
}

} // namespace

std::string addSource(const std::string& name, const CameraAccess& access, bool unchecked) {
    if (const std::string reason = whyNotSourceName(name); !reason.empty())
        throw Refused(reason);
    requireReadableConfiguration();
    requireFreeName(readParameterText(configurationFile()), name);
    std::map<std::string, std::string> camera =
        probeCamera(access.url, access.user, access.password, !unchecked);
    requireWritable("user name", camera["UserName"]);
    requireWritable("password", camera["Password"]);
    std::vector<std::string> lines{"URL = " + camera["URL"]};
    if (!camera["UserName"].empty())
        lines.push_back("UserName = " + camera["UserName"]);
    if (!camera["Password"].empty())
        lines.push_back("Password = " + camera["Password"]);
    int index = 0;
    rewrite([&](const std::string& text) {
        requireFreeName(text, name);
        index = static_cast<int>(sourceSectionNames(text).size());
        return withSource(text, name, lines);
    });
    return (unchecked ? "" : camera["Video"] + "; ") + "added as " + sourceText(index, name) + "; " +
           effect();
}

std::string removeSource(int index, const std::string& name) {
    rewrite([&](const std::string& text) { return withoutSource(text, sectionName(text, index)); });
    return "removed " + sourceText(index, name) + "; " + effect();
}

std::string renameSource(int index, const std::string& name, const std::string& newName) {
    if (const std::string reason = whyNotSourceName(newName); !reason.empty())
        throw Refused(reason);
    rewrite([&](const std::string& text) {
        const std::string present = sectionName(text, index);
        if (!sameName(present, newName))
            requireFreeName(text, newName);
        return withSourceRenamed(text, present, newName);
    });
    return "renamed " + sourceText(index, name) + " to " + inQuotes(newName) + "; " + effect();
}

std::string orderSources(const std::vector<int>& indices) {
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
    return "the sources have a new order; " + effect();
}

std::string readPassword(bool fromInput) {
    termios before{};
    const bool hidden = !fromInput && tcgetattr(STDIN_FILENO, &before) == 0;
    if (hidden) {
        std::cerr << "Password: " << std::flush;
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
    }
    std::string password;
    std::getline(std::cin, password);
    if (hidden) {
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
        std::cerr << '\n';
    }
    return password;
}
