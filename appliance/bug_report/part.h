// What a bug report has inside.
#pragma once

#include <functional>
#include <string>

namespace bug_report {

// One file of the archive.
struct Part {
    std::string name; // of the file: "status.txt"
    std::string text;
};

// The part with what `read` returns. When that throws, the part says what was not there, and why: a bug report is made when
// something does not work.
Part partOf(const std::string& name, const std::function<std::string()>& read);

// The file's last bytes, at most `most`, from the beginning of a line. Throws std::runtime_error when it can't be read.
std::string endOfFile(const std::string& path, std::size_t most);

} // namespace bug_report
