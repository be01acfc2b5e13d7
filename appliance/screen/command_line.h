// What the screen's programs share in reading their command lines.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace screen {

// Reads the command line. Gives the exit status when the program is to end at once: 0 after --help or
// --version, 2 with a message after a mistake.
inline std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
}

} // namespace screen
