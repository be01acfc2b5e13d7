// A player's command line: which of the player programs, with which arguments, for a detected source.
//
// All of it is put together before the fork, on the supervisor's side: other threads may hold the locks of
// the log and of the parameter files at the moment of the fork, and in the child nobody would ever release
// them. The child only replaces itself. The source's entry is not changed: the arguments are built from a
// copy.
#pragma once

#include "sources/source_entry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CommandLine {
    std::vector<std::string> arguments;       // the first one names the program, where there is one
    std::optional<std::size_t> passwordIndex; // which argument is the password, where there is one

    // The arguments with single blanks between them, for the log: the password is replaced by "********".
    std::string text() const;
};

// The command line for the entry; `port` is the player's UDP port, 65535 for none. Reads the source's record,
// its status and the parameter file. Main thread.
CommandLine buildCommandLine(SourceEntry entry, std::uint16_t port);

// A command line made ready for exec: nothing is allocated, read or locked by execute().
class PlayerCommand {
public:
    explicit PlayerCommand(CommandLine commandLine);
    PlayerCommand(const PlayerCommand&) = delete; // argv_ points into this object
    PlayerCommand& operator=(const PlayerCommand&) = delete;

    const std::string& text() const { return text_; }

    // Replaces the process by the player; when that fails, logs it and ends the process with status 13. A
    // player named by an absolute path is looked for below the appliance root. In the forked child.
    [[noreturn]] void execute() const;

private:
    CommandLine commandLine_;
    std::string text_;
    std::string file_;
    std::vector<char*> argv_;
};
