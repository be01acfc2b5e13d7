// A log that grows for hours: reads what is new, and keeps the file small.
#pragma once

#include <string>
#include <vector>

namespace faults {

class FollowedLog {
public:
    // At `largest` bytes the file gets another name for a moment and is removed; the programs then begin a new one, as
    // with any log rotation. 0: it is never renamed, because its writer would not notice.
    FollowedLog(std::string file, long largest) : file_(std::move(file)), largest_(largest) {}

    // The complete lines since the last call.
    std::vector<std::string> newLines();

private:
    void readFrom(const std::string& file, std::vector<std::string>& lines);

    std::string file_;
    long largest_;
    long at_ = 0;
    std::string rest_; // a line that is not complete yet
};

} // namespace faults
