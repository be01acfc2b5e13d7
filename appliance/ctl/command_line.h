// What was typed after `decoderctl`.
#pragma once

#include <iosfwd>
#include <string>
#include <variant>

enum class Command {
    Status,
    Sources,
    Source,
    Explain,
    Get,
    Set,
    Select,
    Alarm,
    Lock,
    Reconnect,
    Flush,
    Connect,
    Disconnect,
    Button,
    Snapshot,
    Watch,
};

struct Request {
    Command command = Command::Status;
    bool json = false;
    std::string root;   // --root, "" when it was not given
    std::string source; // source, explain, select, alarm: as typed
    std::string name;   // get, set
    std::string value;  // set; "-" stands for a line of standard input
    std::string text;   // alarm
    std::string file;   // snapshot
    bool hold = false;  // button
    bool force = false; // set
    double seconds = 0; // watch: 0 until it is interrupted
};

inline constexpr int usageStatus = 2;

// The request, or the status to exit with after help (0) or a usage error (2), which are printed to `out` and
// `errors`.
std::variant<Request, int> parseCommandLine(int argc, const char* const* argv, std::ostream& out,
                                            std::ostream& errors);
