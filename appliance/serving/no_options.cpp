// Without CLI11, which small programs need not carry.
#include "appliance/serving/command_line.h"

#include <cstdio>
#include <string_view>

std::optional<CommandLineEnd> readNoOptions(const std::string& purpose, const std::string& version, int argc,
                                            const char* const* argv) {
    constexpr int usageMistake = 2;
    if (argc == 1)
        return std::nullopt;
    const std::string name = version.substr(0, version.find(' '));
    const std::string_view option = argc == 2 ? argv[1] : "";
    if (option == "--help")
        return CommandLineEnd{0, "Usage: " + name + "\n\n" + purpose +
                                     "\n\n  --help      print this and exit\n"
                                     "  --version   print the version and exit\n"};
    if (option == "--version")
        return CommandLineEnd{0, version + '\n'};
    return CommandLineEnd{usageMistake, name + ": there are no other options than --help and --version\n"};
}

int finish(const CommandLineEnd& end) {
    std::fputs(end.message.c_str(), end.exitStatus == 0 ? stdout : stderr);
    return end.exitStatus;
}
