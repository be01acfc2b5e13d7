// decoder-report: the part of decoderctl that makes the archive for a bug report.
#include "appliance/bug_report/bug_report.h"

#include <libcommon/text.h>

#include <cstdio>
#include <exception>
#include <iostream>
#include <nlohmann/json.hpp>
#include <string_view>

namespace {

constexpr const char* help =
    "Usage: decoder-report [--json] FILE\n\n"
    "Makes an archive with what is needed to understand a fault of the decoder. decoderctl report starts "
    "it.\n\n"
    "  FILE        the archive; \"\" is decoder-report-TIME.tar.gz, \"-\" standard output\n"
    "  --json      answer in JSON, for programs\n"
    "  --help      print this and exit\n"
    "  --version   print the version and exit\n";

void answer(const bug_report::Made& made, bool json) {
    const std::string sentence = libcommon::printable(bug_report::sentenceOf(made));
    if (made.file != "-")
        std::cout << (json ? nlohmann::json{{"done", sentence}, {"file", made.file}}.dump() : sentence)
                  << '\n';
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view first = argc > 1 ? argv[1] : "";
    if (argc == 2 && first == "--help") {
        std::fputs(help, stdout);
        return 0;
    }
    if (argc == 2 && first == "--version") {
        std::puts(HOUSE_VERSION);
        return 0;
    }
    const bool json = argc == 3 && first == "--json";
    if (argc != (json ? 3 : 2)) {
        std::fputs("decoder-report: one file is needed (--help tells more)\n", stderr);
        return 2;
    }
    try {
        answer(bug_report::makeBugReport(argv[argc - 1]), json);
        std::cout.flush();
        return std::cout ? 0 : 1;
    } catch (const std::exception& error) {
        if (json)
            std::cout << nlohmann::json{{"error", libcommon::printable(error.what())}}.dump() << '\n';
        std::cerr << "decoderctl: " << libcommon::printable(error.what()) << '\n';
        return 1;
    }
}
