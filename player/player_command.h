// A player's command line: the program and its arguments for a detected source.
//
// The supervisor builds it before the fork. At the moment of the fork other threads may hold locks of the log and of
// the parameter files, and a child would wait for them forever; so the child only calls exec. The source's entry is not
// changed: the arguments are built from a copy.
#pragma once

#include "sources/source_entry.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct CommandLine {
    std::vector<std::string> arguments;       // the first one is the program, if the kind has one
    std::optional<std::size_t> passwordIndex; // position of the password, if there is one

    // The arguments joined with blanks, for the log. The password is replaced by "********".
    std::string text() const;
};

// The command line for the entry; `port` is the player's UDP port, 65535 for none. Reads the source's record,
// its status and the parameter file. Main thread.
CommandLine buildCommandLine(SourceEntry entry, std::uint16_t port);

// A command line ready for exec: execute() allocates, reads and locks nothing.
class PlayerCommand {
public:
    explicit PlayerCommand(CommandLine commandLine);
    PlayerCommand(const PlayerCommand&) = delete; // argv_ points into this object
    PlayerCommand& operator=(const PlayerCommand&) = delete;

    const std::string& text() const { return text_; }

    // Replaces the process with the player. A failure is logged and ends the process with status 13. A player with an
    // absolute path is searched below the appliance root. Called in the forked child.
    [[noreturn]] void execute() const;

private:
    CommandLine commandLine_;
    std::string text_;
    std::string file_;
    std::vector<char*> argv_;
};
