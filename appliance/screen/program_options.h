// Command lines of the screen's programs.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>

namespace screen {

// Parses the command line. Returns an exit status if the program must end: 0 after --help or --version, 2 with a
// message after a mistake.
inline std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
}

} // namespace screen
