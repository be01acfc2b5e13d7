// skelmor-replay: what a supervisor did, done once more by its own state machine.
#include "replay/replay.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <exception>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using replay::Part;

constexpr int same = 0;
constexpr int different = 1;
constexpr int unusable = 2;
constexpr std::streamsize mostBytes = 256L * 1024 * 1024;

constexpr const char* help =
    "Usage: skelmor-replay [--log | --print] FILE\n\n"
    "Replays a recording of the supervisor, /run/decoder/recording or that of a bug report: its own state "
    "machine\n"
    "gets the recorded events, parameters and results once more, with a simulated clock. Prints the "
    "transitions.\n\n"
    "  FILE        the recording; \"-\" reads it from standard input\n"
    "  --log       print the lines that the supervisor logs, too\n"
    "  --print     print the recording as a text and do not replay it\n"
    "  --help      print this and exit\n"
    "  --version   print the version and exit\n\n"
    "Exit status: 0 the same transitions, 1 different ones, 2 no recording that can be replayed.\n";

struct Options {
    bool log = false;
    bool print = false;
    std::string file;
};

std::string readAll(std::istream& in) {
    std::string bytes;
    std::array<char, 65536> piece{};
    while (in.read(piece.data(), piece.size()) || in.gcount() > 0) {
        bytes.append(piece.data(), static_cast<std::size_t>(in.gcount()));
        if (static_cast<std::streamsize>(bytes.size()) > mostBytes)
            throw std::runtime_error("the file is larger than any recording");
    }
    return bytes;
}

std::string readFile(const std::string& name) {
    std::ifstream in(name == "-" ? "/dev/stdin" : name, std::ios::binary);
    if (!in)
        throw std::runtime_error(std::strerror(errno));
    return readAll(in);
}

// "2026-01-31T23:59:59.123456Z", or seconds when the time of day is unknown.
std::string timeText(const Part& part, std::int64_t time) {
    char text[96];
    if (part.timeOfDay == 0) {
        std::snprintf(text, sizeof text, "%.6f", static_cast<double>(time) / 1e6);
        return text;
    }
    const std::int64_t now = part.timeOfDay + time;
    const auto seconds = static_cast<std::time_t>(now / 1000000);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(text + length, sizeof text - length, ".%06dZ", static_cast<int>(now % 1000000));
    return text;
}

std::string nameOf(const Part& part) {
    if (part.pid == -1)
        return "a supervisor of which the beginning is missing";
    return "supervisor " + std::to_string(part.pid) + ", version " + part.version;
}

// One of the exit statuses.
int replayAndTell(const Part& part) {
    if (part.lines.empty()) {
        std::printf("== %s: can't be replayed, the recording has no state of the machine\n",
                    nameOf(part).c_str());
        return unusable;
    }
    std::printf("== %s, from %s on\n", nameOf(part).c_str(), timeText(part, part.lines.front().time).c_str());
    const replay::Result result = replay::replayPart(part, [&](const replay::Transition& transition) {
        std::printf("%s State transition: %s\n", timeText(part, transition.time).c_str(),
                    replay::textOf(transition).c_str());
    });
    if (result.difference.empty()) {
        std::printf("same %zu transitions\n", result.transitions);
        return same;
    }
    std::printf("different after %zu transitions: %s\n", result.transitions, result.difference.c_str());
    return different;
}

int replayAll(const std::vector<Part>& parts) {
    bool isSame = false;
    bool isDifferent = false;
    for (const Part& part : parts) {
        const int result = replayAndTell(part);
        isSame = isSame || result == same;
        isDifferent = isDifferent || result == different;
    }
    if (!isSame && !isDifferent)
        throw std::runtime_error("nothing in it can be replayed");
    return isDifferent ? different : same;
}

int run(const Options& options) {
    const std::vector<std::string> lines = replay::linesOf(readFile(options.file));
    if (options.print) {
        std::fputs(replay::asText(lines).c_str(), stdout);
        return same;
    }
    replay::printLog(options.log);
    return replayAll(replay::partsOf(lines));
}

bool readOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc - 1; ++i) {
        const std::string_view option = argv[i];
        if (option != "--log" && option != "--print")
            return false;
        (option == "--log" ? options.log : options.print) = true;
    }
    options.file = argc > 1 ? argv[argc - 1] : "";
    return !options.file.empty() && (options.file == "-" || !options.file.starts_with('-'));
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view only = argc == 2 ? argv[1] : "";
    if (only == "--help" || only == "--version") {
        std::puts(only == "--help" ? help : "skelmor-replay " HOUSE_VERSION);
        return 0;
    }
    Options options;
    if (!readOptions(argc, argv, options)) {
        std::fputs("skelmor-replay: one recording is needed (--help tells more)\n", stderr);
        return unusable;
    }
    try {
        return run(options);
    } catch (const std::exception& error) {
        std::fflush(stdout);
        std::fprintf(stderr, "skelmor-replay: %s: %s\n", options.file.c_str(), error.what());
        return unusable;
    }
}
