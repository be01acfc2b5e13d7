// The part of a command line that is the same for many programs: --help, --version, and what is printed for a mistake.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
}

// Why a program does not run: it was asked for its help or version, or its command line has a mistake.
struct CommandLineEnd {
    int exitStatus = 0;  // 0: `message` is for standard output; 2 after a mistake: for standard error
    std::string message; // with its line end
};

// Adds --version to the options of `app`, and reads the command line. Nothing: the program may run. `version` is the
// whole line, "camera-gateway 1.0".
std::optional<CommandLineEnd> readCommandLine(CLI::App& app, const std::string& version, int argc,
                                              const char* const* argv);

// The same for a program that has no other options and no arguments. `purpose` is the text of its help; `version` begins
// with the program's name.
std::optional<CommandLineEnd> readNoOptions(const std::string& purpose, const std::string& version, int argc,
                                            const char* const* argv);

// Prints the message. Returns the exit status.
int finish(const CommandLineEnd& end);
