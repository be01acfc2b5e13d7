#include "appliance/serving/command_line.h"

#include <CLI/CLI.hpp>

std::optional<CommandLineEnd> readCommandLine(CLI::App& app, const std::string& version, int argc,
                                              const char* const* argv) {
    constexpr int usageMistake = 2;
    app.set_version_flag("--version", version);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return CommandLineEnd{0, app.help()};
    } catch (const CLI::CallForVersion&) {
        return CommandLineEnd{0, version + '\n'};
    } catch (const CLI::ParseError& mistake) {
        return CommandLineEnd{usageMistake, app.get_name() + ": " + mistake.what() + '\n'};
    }
    return std::nullopt;
}
