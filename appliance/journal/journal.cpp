#include "appliance/journal/journal.h"

#include "appliance/settings/secrets.h"

#include <libcommon/log.h>
#include <libcommon/text.h>

#include <array>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>

namespace {

constexpr std::array levels{"emergency", "alert",  "critical",    "error",
                            "warning",   "notice", "information", "debug"};

// Without colours: ESC [ ... m.
std::string withoutColours(std::string_view text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const std::size_t end = text[i] == '\033' ? text.find('m', i) : std::string_view::npos;
        if (end != std::string_view::npos && end - i < 16)
            i = end;
        else
            plain += text[i];
    }
    return plain;
}

std::string shownText(std::string_view text) {
    return withoutSecrets(libcommon::printable(withoutColours(text)));
}

// The programs of the appliance, as they name themselves in the log.
const std::vector<std::string> programs{"skelmor",         "mjpeg_player",    "unicastplayer",
                                        "multicastplayer", "mpeg4player",     "camera-gateway",
                                        "decoder-address", "decoder-monitor", "decoder-panel",
                                        "decoder-mqtt",    "camera-input",    "decoderctl"};

} // namespace

JournalLine readJournalLine(std::string_view line) {
    // 2026-11-21T07:58:01.123456Z skelmor[4711] 6 text
    const std::size_t program = line.find(' ');
    const std::size_t pid = line.find('[');
    const std::size_t level = line.find("] ");
    const bool good = program == 27 && line[program - 1] == 'Z' && line[10] == 'T' &&
                      pid != std::string_view::npos && level != std::string_view::npos && program < pid &&
                      pid < level && line.size() > level + 3 && line[level + 2] >= '0' &&
                      line[level + 2] <= '7' && line[level + 3] == ' ';
    if (!good)
        return {"", "", 6, shownText(line)};
    return {std::string(line.substr(0, program)), shownText(line.substr(program + 1, pid - program - 1)),
            line[level + 2] - '0', shownText(line.substr(level + 4))};
}

nlohmann::json journalJson(const JournalLine& line) {
    const auto level = static_cast<std::size_t>(line.level) % levels.size();
    return {{"time", line.time.empty() ? nlohmann::json() : nlohmann::json(line.time)},
            {"program", line.program},
            {"level", levels[level]},
            {"text", line.text}};
}

std::optional<std::string> enteredState(const JournalLine& line) {
    constexpr std::string_view beginning = "State transition: ";
    const std::size_t arrow = line.text.find(" -> ");
    if (!line.text.starts_with(beginning) || arrow == std::string::npos)
        return std::nullopt;
    return line.text.substr(arrow + 4, line.text.find('(', arrow) - arrow - 4);
}

std::unique_ptr<Journal> openJournal() {
    const char* log = std::getenv("LIBCOMMON_LOG");
    if (log != nullptr && *log != '\0' && std::string_view(log) != "stderr")
        return openLogFile(log);
    return openSystemJournal(programs);
}
