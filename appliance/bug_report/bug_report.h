// One archive for a bug report.
#pragma once

#include <string>

namespace bug_report {

struct Made {
    std::string file;
    std::size_t parts = 0; // files in the archive
    std::size_t bytes = 0; // of the archive; 0 for standard output
};

// Collects what is known about the decoder below applianceRoot() and its machine, hides every password, and writes it to
// `file`: "" is decoder-report-TIME.tar.gz in the current folder, "-" standard output. What can't be read is named in the
// archive, with the reason. Throws std::runtime_error when the archive can't be written.
Made makeBugReport(const std::string& file);

// "saved decoder-report.tar.gz, 14 files, 38 KiB; passwords are hidden, names and addresses are not"
std::string sentenceOf(const Made& made);

} // namespace bug_report
