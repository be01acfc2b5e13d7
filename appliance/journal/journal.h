// The appliance's log, as a person reads it: the last lines, and new ones as they come.
//
// Under systemd the lines are in the system's journal, which is read through libsystemd. Elsewhere LIBCOMMON_LOG names a
// file. Lines are shown as they are, except that passwords in URLs are hidden and colours are left out. One thread.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct JournalLine {
    std::string time;    // ISO 8601; "" of a line that no program of the appliance wrote
    std::string program; // "skelmor"
    int level = 6;       // a syslog priority
    std::string text;
};

class Journal {
public:
    static constexpr std::size_t mostLines = 1000; // that follow() gives at once

    Journal() = default;
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;
    virtual ~Journal() = default;

    // The last lines, the oldest first. A file gives no more than its last 2 MiB hold.
    virtual std::vector<JournalLine> last(std::size_t lines) = 0;

    // Readable when there may be new lines; -1: it can't be followed.
    virtual int fd() const = 0;

    // Gives each new line to `take`, at most mostLines of them; never blocks. Call it when fd() is readable, and from time
    // to time.
    virtual void follow(const std::function<void(const JournalLine&)>& take) = 0;
};

// The journal of this appliance: what LIBCOMMON_LOG names, else the system's. Null when there is none (logged).
std::unique_ptr<Journal> openJournal();

// The file's lines; it may be renamed and made again, and need not exist yet.
std::unique_ptr<Journal> openLogFile(const std::string& path);

// The system's journal, of these programs. Null when it can't be opened.
std::unique_ptr<Journal> openSystemJournal(const std::vector<std::string>& programs);

// A line as libcommon writes it into a file, "TIME PROGRAM[PID] LEVEL TEXT"; any other line is a text alone.
JournalLine readJournalLine(std::string_view line);

// {"time","program","level","text"}, the level as a word.
nlohmann::json journalJson(const JournalLine& line);

// The state that a line of a supervisor with -v says it has entered: "SINGLE_PLAYER_STARTED". Nothing of other lines.
std::optional<std::string> enteredState(const JournalLine& line);
